' A client of the archive component as a script: begins or ends an archive.
'
'   cscript //nologo client.vbs begin SUBSCRIPTION-FILE SERVICE-FILE        begins it, or renews it
'   cscript //nologo client.vbs end ARCHIVE-ID SERVICE-FILE
'
' VBScript cannot read an archive: GetData returns its error text through a BSTR* argument, to which VBScript cannot pass
' a variable. Scripts can use "vornactl get"; client.cpp shows it in C++.
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

' The third argument has no effect. A script gets the code of a failure, but not its text.
On Error Resume Next
archives.SetData service, document, 0
If Err.Number <> 0 Then
    WScript.Echo "refused: 0x" & Hex(Err.Number)
    WScript.Quit 1
End If
WScript.Echo "accepted"

' The text of an ASCII file without its XML declaration, because text in memory has no such encoding.
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
