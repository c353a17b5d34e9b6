// Files on Windows. Names are UTF-8 and reach the system as UTF-16 in the form that knows no limit
// of 260 characters. Every handle lets others read, write, rename and delete the file, as files
// elsewhere do.
#include <windows.h>
// Behind the one that they need.
#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <type_traits>
#include <vector>

#include "frame/code_page.h"
#include "frame/file_handle.h"
#include "frame/files.h"

namespace korvane {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
// FileRenameInfoEx, which the compiler's headers hide.
constexpr auto kRenameWithFlags = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
constexpr size_t kMostAtOnce = size_t{1} << 30;

struct CloseIt {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnedHandle = std::unique_ptr<std::remove_pointer_t<HANDLE>, CloseIt>;

struct FreeIt {
  void operator()(void* memory) const { LocalFree(memory); }
};
template <class T>
using LocalMemory = std::unique_ptr<T, FreeIt>;

HANDLE Handle(std::intptr_t handle) { return reinterpret_cast<HANDLE>(handle); }

std::wstring Wide(const std::string& text) {
  const std::string utf8 = ToUtf8(text.substr(0, text.find('\0')));
  const int size = static_cast<int>(utf8.size());
  std::wstring wide(utf8.size(), L'\0');
  wide.resize(static_cast<size_t>(
      size == 0 ? 0 : MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), size)));
  return wide;
}

// The full path behind the prefix that lifts the limits on its length. A device stays one.
std::wstring SystemPath(const std::string& path) {
  std::wstring wide = Wide(path);
  const DWORD room = wide.empty() ? 0 : GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  if (room == 0) return wide;
  std::wstring full(room, L'\0');
  full.resize(GetFullPathNameW(wide.c_str(), room, full.data(), nullptr));
  if (full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) return full;
  if (full.starts_with(L"\\\\")) return L"\\\\?\\UNC" + full.substr(1);
  return L"\\\\?\\" + full;
}

OwnedHandle Opened(const std::wstring& path, DWORD access, DWORD how, DWORD flags,
                   SECURITY_ATTRIBUTES* security = nullptr) {
  const HANDLE handle = CreateFileW(path.c_str(), access, kShareAll, security, how, flags, nullptr);
  return OwnedHandle(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
}

// Who calls: a page may run as the visitor whom the web server let in.
std::wstring CallersSid() {
  HANDLE opened = nullptr;
  if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &opened) &&
      !OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    return {};
  }
  const OwnedHandle token(opened);
  DWORD size = 0;
  GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
  std::vector<std::max_align_t> memory(size / sizeof(std::max_align_t) + 1);
  if (!GetTokenInformation(token.get(), TokenUser, memory.data(), size, &size)) return {};
  wchar_t* text = nullptr;
  const auto* user = reinterpret_cast<const TOKEN_USER*>(memory.data());
  if (!ConvertSidToStringSidW(user->User.Sid, &text)) return {};
  const LocalMemory<wchar_t> owner(text);
  return text;
}

// Full access for the caller, for the system and its administrators, who could take it anyway, and
// for nobody else; nothing is inherited from the folder. None where it cannot be made: the folder's
// rights then hold.
LocalMemory<void> OwnerOnly() {
  const std::wstring sid = CallersSid();
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const std::wstring text = L"D:P(A;;FA;;;" + sid + L")(A;;FA;;;SY)(A;;FA;;;BA)";
  if (sid.empty() || !ConvertStringSecurityDescriptorToSecurityDescriptorW(
                         text.c_str(), SDDL_REVISION_1, &descriptor, nullptr)) {
    return nullptr;
  }
  return LocalMemory<void>(descriptor);
}

OVERLAPPED At(int64_t position) {
  OVERLAPPED at{};
  at.Offset = static_cast<DWORD>(position);
  at.OffsetHigh = static_cast<DWORD>(position >> 32);
  return at;
}

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The rename that also takes the place of a file that somebody has open. Newer systems have it.
bool RenameOverOpenFile(const std::wstring& from, const std::wstring& to) {
  const OwnedHandle file = Opened(from, DELETE | SYNCHRONIZE, OPEN_EXISTING, 0);
  if (!file) return false;
  const size_t name = to.size() * sizeof(wchar_t);
  const size_t size = sizeof(FILE_RENAME_INFO) + name;
  std::vector<std::max_align_t> memory(size / sizeof(std::max_align_t) + 1);
  auto* info = reinterpret_cast<FILE_RENAME_INFO*>(memory.data());
  // The flags lie where the older form of the structure has its only one.
  const DWORD flags = FILE_RENAME_FLAG_REPLACE_IF_EXISTS | FILE_RENAME_FLAG_POSIX_SEMANTICS;
  std::copy_n(reinterpret_cast<const char*>(&flags), sizeof flags, reinterpret_cast<char*>(info));
  info->FileNameLength = static_cast<DWORD>(name);
  std::copy(to.begin(), to.end(), info->FileName);
  return SetFileInformationByHandle(file.get(), kRenameWithFlags, info, static_cast<DWORD>(size)) !=
         0;
}

// What does instead where there is no such rename: an open file can still be given another name. It
// is gone with the last one who has it open.
bool RenameOverFileSetAside(const std::wstring& from, const std::wstring& to) {
  static std::atomic<unsigned> counter{0};
  const std::wstring aside = to.substr(0, to.rfind(L'\\') + 1) + L".korvane_" +
                             std::to_wstring(GetCurrentProcessId()) + L"_" +
                             std::to_wstring(counter.fetch_add(1)) + L".old";
  if (!MoveFileExW(to.c_str(), aside.c_str(), 0)) return false;
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH)) {
    DeleteFileW(aside.c_str());
    return true;
  }
  MoveFileExW(aside.c_str(), to.c_str(), 0);
  return false;
}

}  // namespace

FileHandle FileHandle::Open(const std::string& path, How how) {
  DWORD access = GENERIC_READ;
  DWORD disposition = OPEN_EXISTING;
  DWORD attributes = FILE_ATTRIBUTE_NORMAL;
  if (how == How::kReadWrite) {
    access |= GENERIC_WRITE;
    disposition = OPEN_ALWAYS;
  } else if (how == How::kNew) {
    access = GENERIC_WRITE | WRITE_DAC;
    disposition = CREATE_NEW;
  } else if (how == How::kUnnamed) {
    access |= GENERIC_WRITE | DELETE;
    disposition = CREATE_NEW;
    attributes = FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE;
  } else if (how == How::kAppend) {
    // To read, because without it the file could not be locked.
    access = FILE_APPEND_DATA | FILE_READ_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE;
    disposition = OPEN_ALWAYS;
  }
  LocalMemory<void> descriptor;
  if (how != How::kRead) descriptor = OwnerOnly();
  SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
  OwnedHandle file = Opened(SystemPath(path), access, disposition, attributes, &security);
  return FileHandle(file ? reinterpret_cast<std::intptr_t>(file.release()) : kNone);
}

bool FileHandle::LastOpenFoundOne() {
  const DWORD error = GetLastError();
  return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
}

bool FileHandle::Close() {
  return !IsOpen() || CloseHandle(Handle(std::exchange(handle_, kNone))) != 0;
}

// A folder is never opened.
bool FileHandle::IsRegular() const { return GetFileType(Handle(handle_)) == FILE_TYPE_DISK; }

int64_t FileHandle::Length() const {
  LARGE_INTEGER length;
  return GetFileSizeEx(Handle(handle_), &length) ? length.QuadPart : -1;
}

bool FileHandle::WriteAll(const char* data, size_t size, int64_t position) const {
  while (size > 0) {
    OVERLAPPED at = At(position);
    DWORD n = 0;
    const auto piece = static_cast<DWORD>(std::min(size, kMostAtOnce));
    if (!WriteFile(Handle(handle_), data, piece, &n, &at) || n == 0) return false;
    data += n;
    size -= n;
    position += n;
  }
  return true;
}

// Where the system asks for the end before it writes there, two writers may find the same one: so
// whoever appends holds a byte that no file reaches.
bool FileHandle::Append(const char* data, size_t size) const {
  OVERLAPPED far_away = At(std::numeric_limits<int64_t>::max() - 1);
  const bool alone = LockFileEx(Handle(handle_), LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &far_away) != 0;
  DWORD n = 0;
  const bool written =
      WriteFile(Handle(handle_), data, static_cast<DWORD>(size), &n, nullptr) && n == size;
  if (alone) UnlockFileEx(Handle(handle_), 0, 1, 0, &far_away);
  return written;
}

int64_t FileHandle::ReadUpTo(char* buffer, size_t size, int64_t position) const {
  size_t done = 0;
  while (done < size) {
    OVERLAPPED at = At(position + static_cast<int64_t>(done));
    DWORD n = 0;
    const auto piece = static_cast<DWORD>(std::min(size - done, kMostAtOnce));
    if (!ReadFile(Handle(handle_), buffer + done, piece, &n, &at)) {
      if (GetLastError() == ERROR_HANDLE_EOF) break;
      return -1;
    }
    if (n == 0) break;
    done += n;
  }
  return static_cast<int64_t>(done);
}

int64_t FileHandle::CopyInSystem(int64_t, const FileHandle&, int64_t, int64_t) const { return 0; }

bool FileHandle::Resize(int64_t length) const {
  FILE_END_OF_FILE_INFO end{};
  end.EndOfFile.QuadPart = length;
  return SetFileInformationByHandle(Handle(handle_), FileEndOfFileInfo, &end, sizeof end) != 0;
}

bool FileHandle::Sync() const { return FlushFileBuffers(Handle(handle_)) != 0; }
void FileHandle::BeginSync() const {}

FileHandle::Locked FileHandle::TryLock() const {
  OVERLAPPED at{};
  const DWORD flags = LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY;
  if (LockFileEx(Handle(handle_), flags, 0, 1, 0, &at)) return Locked::kHeld;
  const DWORD error = GetLastError();
  return error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING ? Locked::kTaken
                                                                    : Locked::kFailed;
}

void FileHandle::TakeOverRights(const std::string& path) const {
  std::wstring old = SystemPath(path);
  PACL rights = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetNamedSecurityInfoW(old.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            &rights, nullptr, &descriptor) != ERROR_SUCCESS) {
    return;
  }
  const LocalMemory<void> owner(descriptor);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  GetSecurityDescriptorControl(descriptor, &control, &revision);
  const DWORD inheritance = (control & SE_DACL_PROTECTED) != 0
                                ? PROTECTED_DACL_SECURITY_INFORMATION
                                : UNPROTECTED_DACL_SECURITY_INFORMATION;
  SetSecurityInfo(Handle(handle_), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION | inheritance, nullptr,
                  nullptr, rights, nullptr);
}

uint32_t ProcessId() { return GetCurrentProcessId(); }

std::string DirectoryOf(const std::string& path) {
  const size_t cut = path.find_last_of("\\/:");
  if (cut == std::string::npos) return ".";
  if (path[cut] == ':') return path.substr(0, cut + 1) + '.';
  // Of the root, with or without a drive before it, the separator is a part.
  const bool root = cut == 0 || (cut == 2 && path[1] == ':');
  return path.substr(0, root ? cut + 1 : cut);
}

std::string JoinPath(std::string_view directory, std::string_view name) {
  std::string path(directory);
  path += '\\';
  path += name;
  return path;
}

// How long a client of a file server keeps names is its machine's setting; no call shortens it.
void RefreshKnowledge(const std::string&) {}

bool FileExists(const std::string& path) {
  return GetFileAttributesW(SystemPath(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool RemoveFile(const std::string& path) {
  if (DeleteFileW(SystemPath(path).c_str())) return true;
  const DWORD error = GetLastError();
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// A scanner may hold a file that was just written, for a moment: a rename is tried for half a
// second.
bool RenameFile(const std::string& from, const std::string& to) {
  const std::wstring source = SystemPath(from);
  const std::wstring target = SystemPath(to);
  if (RenameOverOpenFile(source, target)) return true;
  constexpr int kTries = 20;
  constexpr DWORD kPause = 25;
  for (int i = 0; i < kTries; ++i) {
    if (i > 0) Sleep(kPause);
    if (MoveFileExW(source.c_str(), target.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      return true;
    }
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) return false;
    if (IsFolder(target)) return false;
    if (RenameOverFileSetAside(source, target)) return true;
  }
  return false;
}

// Only what was opened for writing can be flushed.
bool SyncFile(const std::string& path) {
  const OwnedHandle file = Opened(SystemPath(path), GENERIC_WRITE, OPEN_EXISTING, 0);
  return file && FlushFileBuffers(file.get());
}

// Names are kept safe by the file system's own journal. Where a folder can be flushed it is.
bool SyncDirectory(const std::string& directory) {
  const std::wstring path = SystemPath(directory);
  if (!IsFolder(path)) return false;
  const OwnedHandle folder = Opened(path, GENERIC_WRITE, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  if (folder) FlushFileBuffers(folder.get());
  return true;
}

}  // namespace korvane
