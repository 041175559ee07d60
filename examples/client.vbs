' A client of the archive component in a script: begins an archive or ends it.
'
'   cscript //nologo client.vbs begin SUBSCRIPTION-FILE SERVICE-FILE        begins it, or renews it
'   cscript //nologo client.vbs end ARCHIVE-ID SERVICE-FILE
'
' Reading an archive is not possible from VBScript: GetData returns its error text through a BSTR* argument, to which
' VBScript cannot pass a variable. Clients in C++ can (client.cpp); for a script there is "vornactl get".
Option Explicit

Dim document, factory, service, archives

If WScript.Arguments.Count <> 3 Then Usage
If WScript.Arguments(0) = "begin" Then
    document = ReadText(WScript.Arguments(1))
ElseIf WScript.Arguments(0) = "end" Then
    document = "<Archive ID=""" & WScript.Arguments(1) & """><Collect>OFF</Collect></Archive>"
Else
    Usage
End If

Set factory = CreateObject("QXKELDAN.ZEBService")
Set service = factory.CreateService(ReadText(WScript.Arguments(2)))
Set archives = CreateObject("QXKELDAN.Vorna")

' The third argument has no effect. A script sees the code of a failure, not the text that comes with it.
On Error Resume Next
archives.SetData service, document, 0
If Err.Number <> 0 Then
    WScript.Echo "refused: 0x" & Hex(Err.Number)
    WScript.Quit 1
End If
WScript.Echo "accepted"

' The text of an ASCII file without its XML declaration: a text in memory has no encoding to declare.
Function ReadText(path)
    Dim text
    text = CreateObject("Scripting.FileSystemObject").OpenTextFile(path, 1).ReadAll
    If Left(text, 5) = "<?xml" Then text = Mid(text, InStr(text, "?>") + 2)
    ReadText = text
End Function

Sub Usage
    WScript.Echo "usage: cscript //nologo client.vbs begin SUBSCRIPTION-FILE SERVICE-FILE | end ARCHIVE-ID SERVICE-FILE"
    WScript.Quit 2
End Sub
