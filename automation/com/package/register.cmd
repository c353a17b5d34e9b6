@echo off
rem Registers Korvane_beta1.dll where it lies; "register.cmd /u" takes that back.
rem To be run as an administrator. Tarsel_MailConversions.dll has to lie beside it.
setlocal
set server=%~dp0Korvane_beta1.dll
set tool=%SystemRoot%\System32\regsvr32.exe
rem A 64-bit Windows has the tool for x86 libraries elsewhere.
if "@architecture@"=="x86" if exist "%SystemRoot%\SysWOW64\regsvr32.exe" set tool=%SystemRoot%\SysWOW64\regsvr32.exe
"%tool%" /s %1 "%server%"
if errorlevel 1 goto failed
echo %server%: done
exit /b 0
:failed
echo %server%: regsvr32 failed. Is this an administrator's window?
exit /b 1
