Attribute VB_Name = "Varnik"
' Declarations of the Varnik library (Varnik.dll, x86 for VB6, x86 or x64 for VBA) for VB6 and
' VBA hosts. Put Varnik.dll beside the application (or the Office document's host), with its
' config folder. Every export is __stdcall and returns a Long.
'
' The library never learns the size of a buffer: it copies the whole reply in. Make every
' output buffer as large as below before the call, e.g.
'     Dim out As String: out = String$(VARNIK_TEXT_BUFFER, vbNullChar)
'     Mid$(out, 111, 1) = "*": n = getVersion(out)
'     If n = 110 And Mid$(out, 111, 1) = "*" Then ' no port (see below)
'     version = Left$(out, InStr(out, vbNullChar) - 1)
'     Dim pin(0 To VARNIK_REPLY_BUFFER - 1) As Byte: r = PinReadKey(pin(0))
'
' 110 is an error for every export, and a length for getVersion, MsreRead, EMVRead and
' ThaiIDRead: on the error the buffer is untouched, so put a mark at position 111 (not a
' NUL) before the call; a text of 110 characters puts its NUL there.
' Texts come back as the library's bytes: ANSI for all but ThaiIDRead, whose text is UTF-8.
Option Explicit

' The library's reply buffer; no reply it copies out is longer.
Public Const VARNIK_REPLY_BUFFER As Long = 204800
' Text buffers: the reply, and room for MsreRead's sentinels and check digits.
Public Const VARNIK_TEXT_BUFFER As Long = 204816
' ThaiIDRead's text: TIS-620 grows to three UTF-8 bytes a character.
Public Const VARNIK_THAI_TEXT_BUFFER As Long = 614401

Public Const VARNIK_PORT_UNAVAILABLE As Long = 110
Public Const VARNIK_NO_TERMINAL As Long = 1538
Public Const VARNIK_PORT_CLOSED As Long = -790

#If VBA7 Then
    ' 0, 110 (no port) or 1538 (no terminal). PinSelect and MsreSelect are the same routine.
    Public Declare PtrSafe Function PosSelect Lib "Varnik.dll" () As Long
    Public Declare PtrSafe Function PinSelect Lib "Varnik.dll" () As Long
    Public Declare PtrSafe Function MsreSelect Lib "Varnik.dll" () As Long
    ' As PosSelect; on 0 the library remembers the port in config\varnik.json.
    Public Declare PtrSafe Function PosCheckPort Lib "Varnik.dll" (ByVal port As Long) As Long
    Public Declare PtrSafe Function PinCheckPort Lib "Varnik.dll" (ByVal port As Long) As Long
    Public Declare PtrSafe Function MsreCheckPort Lib "Varnik.dll" (ByVal port As Long) As Long
    ' Always 0. Call it from a button or timer while another call waits: the terminal gets one CAN.
    Public Declare PtrSafe Function PosCancel Lib "Varnik.dll" () As Long
    Public Declare PtrSafe Function PinCancel Lib "Varnik.dll" () As Long
    Public Declare PtrSafe Function MsreCancel Lib "Varnik.dll" () As Long
    ' out: VARNIK_TEXT_BUFFER. Result: the text's length, or 110 (then out is untouched).
    Public Declare PtrSafe Function getVersion Lib "Varnik.dll" (ByVal out As String) As Long
    ' out: VARNIK_TEXT_BUFFER. 110, -790 (port closed), -2 (script error), -1 (refused/cancelled), else the command's number.
    Public Declare PtrSafe Function PosExec Lib "Varnik.dll" (ByVal out As String, ByVal command As String) As Long
    ' Pass key(0) of a Byte array of VARNIK_REPLY_BUFFER holding the 16 key bytes; the reply replaces them. 0 or 110.
    Public Declare PtrSafe Function PinLoadMK Lib "Varnik.dll" (ByRef key As Byte) As Long
    ' Pass out(0) of a Byte array of VARNIK_REPLY_BUFFER; out(0..15) is the decoded PIN reply. 0 or 110.
    Public Declare PtrSafe Function PinReadKey Lib "Varnik.dll" (ByRef out As Byte) As Long
    ' Pass inOut(0) of a Byte array of VARNIK_REPLY_BUFFER holding the prompt (StrConv(prompt, vbFromUnicode))
    ' and a 0; out come 8 bytes in inOut(0..7). A prompt may not begin with "@". 0 or 110.
    Public Declare PtrSafe Function PinReadKeyClear Lib "Varnik.dll" (ByRef inOut As Byte) As Long
    ' out: VARNIK_TEXT_BUFFER. "track1|track2" in B...F? notation, or the terminal's message. Length, or 110.
    Public Declare PtrSafe Function MsreRead Lib "Varnik.dll" (ByVal out As String) As Long
    ' Empties buffer; no terminal. Always 0.
    Public Declare PtrSafe Function MsreWrite Lib "Varnik.dll" (ByVal buffer As String) As Long
    ' out: VARNIK_TEXT_BUFFER. The terminal's JSON answer. Length, or 110.
    Public Declare PtrSafe Function EMVRead Lib "Varnik.dll" (ByVal out As String) As Long
    ' Mode 0/1: UTF-8 text, out: VARNIK_THAI_TEXT_BUFFER. Mode 2/3: binary, better read into a Byte array (ThaiIDReadBytes). Count, or 110.
    Public Declare PtrSafe Function ThaiIDRead Lib "Varnik.dll" (ByVal out As String, ByVal mode As Long) As Long
    ' The same export (Alias) for the binary form: out(0) of a Byte array of VARNIK_REPLY_BUFFER.
    Public Declare PtrSafe Function ThaiIDReadBytes Lib "Varnik.dll" Alias "ThaiIDRead" (ByRef out As Byte, ByVal mode As Long) As Long
    ' text: UTF-8 bytes, under 10240 of them (a longer text ends the process). No terminal.
    Public Declare PtrSafe Function ThaiLen Lib "Varnik.dll" (ByVal text As String) As Long
    ' 0; -1 if the redirection failed; or the result of PosSelect.
    Public Declare PtrSafe Function ReaderSelect Lib "Varnik.dll" () As Long
#Else
    Public Declare Function PosSelect Lib "Varnik.dll" () As Long
    Public Declare Function PinSelect Lib "Varnik.dll" () As Long
    Public Declare Function MsreSelect Lib "Varnik.dll" () As Long
    Public Declare Function PosCheckPort Lib "Varnik.dll" (ByVal port As Long) As Long
    Public Declare Function PinCheckPort Lib "Varnik.dll" (ByVal port As Long) As Long
    Public Declare Function MsreCheckPort Lib "Varnik.dll" (ByVal port As Long) As Long
    Public Declare Function PosCancel Lib "Varnik.dll" () As Long
    Public Declare Function PinCancel Lib "Varnik.dll" () As Long
    Public Declare Function MsreCancel Lib "Varnik.dll" () As Long
    Public Declare Function getVersion Lib "Varnik.dll" (ByVal out As String) As Long
    Public Declare Function PosExec Lib "Varnik.dll" (ByVal out As String, ByVal command As String) As Long
    Public Declare Function PinLoadMK Lib "Varnik.dll" (ByRef key As Byte) As Long
    Public Declare Function PinReadKey Lib "Varnik.dll" (ByRef out As Byte) As Long
    Public Declare Function PinReadKeyClear Lib "Varnik.dll" (ByRef inOut As Byte) As Long
    Public Declare Function MsreRead Lib "Varnik.dll" (ByVal out As String) As Long
    Public Declare Function MsreWrite Lib "Varnik.dll" (ByVal buffer As String) As Long
    Public Declare Function EMVRead Lib "Varnik.dll" (ByVal out As String) As Long
    Public Declare Function ThaiIDRead Lib "Varnik.dll" (ByVal out As String, ByVal mode As Long) As Long
    Public Declare Function ThaiIDReadBytes Lib "Varnik.dll" Alias "ThaiIDRead" (ByRef out As Byte, ByVal mode As Long) As Long
    Public Declare Function ThaiLen Lib "Varnik.dll" (ByVal text As String) As Long
    Public Declare Function ReaderSelect Lib "Varnik.dll" () As Long
#End If
