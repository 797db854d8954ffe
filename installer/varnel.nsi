; The installer for Windows, made by tools/make-installer.sh:
;   varnel-VERSION-Windows-x64.exe [/S] [/PATH=1|0] [/D=FOLDER]
; installs what the archive holds, registers the event source and, where that is wanted, puts varnelctl on the PATH of
; every user. Over an earlier version it removes that first. FOLDER\uninstall.exe [/S] takes back all of it and nothing else.
Target amd64-unicode
RequestExecutionLevel admin
ManifestSupportedOS all
Name "varnel ${VERSION}"
OutFile "${OUTPUT}"
InstallDir "$PROGRAMFILES64\varnel"
VIProductVersion "${VERSION}.0"
VIAddVersionKey /LANG=1033 "ProductName" "varnel"
VIAddVersionKey /LANG=1033 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "CompanyName" "Tessel Storage"
VIAddVersionKey /LANG=1033 "FileDescription" "Installs varnel"
VIAddVersionKey /LANG=1033 "LegalCopyright" ""

!include "FileFunc.nsh"
!include "LogicLib.nsh"
!include "Sections.nsh"
!include "WinMessages.nsh"

!define UNINSTALL "Software\Microsoft\Windows\CurrentVersion\Uninstall\varnel"
!define EVENTS "SYSTEM\CurrentControlSet\Services\EventLog\Application\varnel"
!define ENVIRONMENT "SYSTEM\CurrentControlSet\Control\Session Manager\Environment"

Page components
Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; A text of NSIS ends at 1,024 characters, which a PATH may have more of: it is read, changed and written in memory of its
; own. $1 the key, $2 the text, $3 its type, $4 bytes.
!macro OpenPath
  System::Alloc 131072
  Pop $2
  System::Call 'advapi32::RegOpenKeyExW(p -2147483646, w "${ENVIRONMENT}", i 0, i 0x2001F, *p .r1) i .r0'
  ${If} $0 == 0
    System::Call 'advapi32::RegQueryValueExW(p r1, w "Path", p 0, *i .r3, p r2, *i 131000 r4) i .r0'
  ${EndIf}
!macroend
!macro WritePath
  System::Call 'kernel32::lstrlenW(p r2) i .r4'
  IntOp $4 $4 + 1
  IntOp $4 $4 * 2
  System::Call 'advapi32::RegSetValueExW(p r1, w "Path", i 0, i r3, p r2, i r4) i .r0'
  SendMessage ${HWND_BROADCAST} ${WM_SETTINGCHANGE} 0 "STR:Environment" /TIMEOUT=500
!macroend
!macro ClosePath
  System::Call 'advapi32::RegCloseKey(p r1)'
  System::Free $2
!macroend

Function .onInit
  SetRegView 64
  ; Where an earlier version lies, and whether it is on the PATH, stays.
  ReadRegStr $0 HKLM "${UNINSTALL}" "InstallLocation"
  ${If} $0 != ""
  ${AndIf} $INSTDIR == "$PROGRAMFILES64\varnel"
    StrCpy $INSTDIR $0
  ${EndIf}
  ReadRegDWORD $0 HKLM "${UNINSTALL}" "OnPath"
  ${GetParameters} $1
  ClearErrors
  ${GetOptions} $1 "/PATH=" $2
  ${IfNot} ${Errors}
    StrCpy $0 $2
  ${EndIf}
  ${If} $0 == 1
    !insertmacro SelectSection 1
  ${EndIf}
FunctionEnd

; The earlier version's own uninstaller, a copy of which waits until it is done.
Function RemoveEarlier
  ReadRegStr $0 HKLM "${UNINSTALL}" "InstallLocation"
  ${If} $0 == ""
  ${OrIfNot} ${FileExists} "$0\uninstall.exe"
    Return
  ${EndIf}
  InitPluginsDir
  CopyFiles /SILENT "$0\uninstall.exe" "$PLUGINSDIR\earlier.exe"
  ExecWait '"$PLUGINSDIR\earlier.exe" /S _?=$0' $1
  ${If} $1 != 0
    DetailPrint "The earlier version in $0 could not be removed."
    SetErrorLevel 3
    Abort
  ${EndIf}
  Delete "$0\uninstall.exe"
FunctionEnd

Section "varnel"
  SectionIn RO
  Call RemoveEarlier
  ${If} ${FileExists} "$INSTDIR\bin\libstdc++-6.dll"
    DetailPrint "$INSTDIR\bin holds another program's C++ runtime: choose another folder."
    SetErrorLevel 5
    Abort
  ${EndIf}
  AllowSkipFiles off
  SetOutPath "$INSTDIR"
  File /r "${STAGE}/*"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegExpandStr HKLM "${EVENTS}" "EventMessageFile" "$INSTDIR\bin\varnelctl.exe"
  WriteRegDWORD HKLM "${EVENTS}" "TypesSupported" 7
  WriteRegStr HKLM "${UNINSTALL}" "DisplayName" "varnel"
  WriteRegStr HKLM "${UNINSTALL}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL}" "Publisher" "Tessel Storage"
  WriteRegStr HKLM "${UNINSTALL}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL}" "NoRepair" 1
  WriteRegDWORD HKLM "${UNINSTALL}" "OnPath" 0
SectionEnd

Section /o "varnelctl on the PATH of every user"
  !insertmacro OpenPath
  ${If} $0 == 0
    System::Call 'kernel32::lstrcatW(p r2, w ";$INSTDIR\bin")'
    !insertmacro WritePath
    ${If} $0 == 0
      WriteRegDWORD HKLM "${UNINSTALL}" "OnPath" 1
    ${EndIf}
  ${EndIf}
  !insertmacro ClosePath
SectionEnd

; What is in use cannot be written to, nor removed.
!macro RequireFree FILE
  ${If} ${FileExists} "$INSTDIR\${FILE}"
    ClearErrors
    FileOpen $0 "$INSTDIR\${FILE}" a
    ${If} ${Errors}
      DetailPrint "${FILE} is in use, or may not be changed."
      SetErrorLevel 4
      Abort
    ${EndIf}
    FileClose $0
  ${EndIf}
!macroend

; Takes ";FOLDER\bin" out where it is a whole entry. $5 where it begins, $6 the text after it, $7 the character there.
!macro RemoveFromPath
  !insertmacro OpenPath
  ${If} $0 == 0
    System::Call 'shlwapi::StrStrIW(p r2, w ";$INSTDIR\bin") p .r5'
    ${If} $5 <> 0
      StrLen $6 ";$INSTDIR\bin"
      IntOp $6 $6 * 2
      IntPtrOp $6 $6 + $5
      System::Call '*$6(&i2 .r7)'
      ${If} $7 == 0
      ${OrIf} $7 == 59
        System::Call 'kernel32::lstrlenW(p r6) i .r7'
        IntOp $7 $7 + 1
        IntOp $7 $7 * 2
        System::Call 'kernel32::RtlMoveMemory(p r5, p r6, p r7)'
        !insertmacro WritePath
      ${EndIf}
    ${EndIf}
  ${EndIf}
  !insertmacro ClosePath
!macroend

Section "Uninstall"
  SetRegView 64
  ; Nothing is removed while a part of it is in use. Then what was installed, and folders that are empty then.
  !include "${REMOVALS}"
  ${If} ${FileExists} "$INSTDIR\bin\varnelctl.exe"
    DetailPrint "varnelctl is running, or may not be removed."
    SetErrorLevel 4
    Abort
  ${EndIf}
  ReadRegDWORD $0 HKLM "${UNINSTALL}" "OnPath"
  ${If} $0 == 1
    !insertmacro RemoveFromPath
  ${EndIf}
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
  ; Somebody may have registered another varnelctl.exe since.
  ReadRegStr $0 HKLM "${EVENTS}" "EventMessageFile"
  ${If} $0 == "$INSTDIR\bin\varnelctl.exe"
    DeleteRegKey HKLM "${EVENTS}"
  ${EndIf}
  DeleteRegKey HKLM "${UNINSTALL}"
SectionEnd
