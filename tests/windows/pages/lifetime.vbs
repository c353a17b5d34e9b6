'#include start.vbs
' Two thousand objects of every kind, made and dropped, leave the memory and the handles as they were.
Dim i, oWeb, oBoss, oBasic, oPage, oMessage, oConn, nMemory, nHandles, nGrown

Sub Cycle
  Set oBoss = CreateObject("Korvane_beta1.BossObject")
  oBoss.Init nInstance
  Set oBasic = CreateObject("Korvane_beta1.BasicInterface")
  oBasic.Init False
  Set oWeb = CreateObject("Korvane_beta1.WebInterface")
  oWeb.ConnDataBase = oConn
  oWeb.UserId = lUser
  oWeb.Init oBoss, -10
  Set oMessage = oWeb.NewMessage
  oMessage.NM_Subject = "città"
  oMessage.NM_NewAttachment
  Set oMessage = Nothing
  Set oWeb = Nothing
  Set oBasic = Nothing
  Set oBoss = Nothing
End Sub

Sub List
  Set oWeb = CreateObject("Korvane_beta1.WebInterface")
  oWeb.ConnDataBase = oConn
  oWeb.UserId = lUser
  oWeb.Init oBoss, -10
  Set oPage = oWeb.GetListMessagesInBox(1, -1, , , , , , , 1)
  For Each oMessage In oPage
    oMessage.Subject 0
  Next
  Set oMessage = Nothing
  Set oPage = Nothing
  Set oWeb = Nothing
End Sub

Set oConn = NewConnection
For i = 1 To 200 : Cycle : Next
nMemory = Test.Memory
nHandles = Test.Handles
For i = 1 To 2000 : Cycle : Next
nGrown = Test.Memory - nMemory
Test.Check nGrown < 1000, "2000 cycles of all objects: " & nGrown & " kB more"
Test.Check Test.Handles <= nHandles + 2, "and no handle more: " & (Test.Handles - nHandles)

Set oBoss = NewBoss
For i = 1 To 20 : List : Next
nMemory = Test.Memory
For i = 1 To 100 : List : Next
nGrown = Test.Memory - nMemory
Test.Check nGrown < 1000, "100 listings: " & nGrown & " kB more"
