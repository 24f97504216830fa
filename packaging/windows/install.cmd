@echo off
rem Registers the event source "Quillfence", so that the Event Viewer shows our events in full.
rem Run it as an administrator, in the folder where quillfence-replayer.exe is to stay.
setlocal
set "program=%~dp0quillfence-replayer.exe"
if not exist "%program%" (
    echo quillfence-replayer.exe is not in the folder of this script.
    exit /b 1
)
set "key=HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Quillfence"
reg add "%key%" /v EventMessageFile /t REG_EXPAND_SZ /d "%program%" /f
if errorlevel 1 goto failed
reg add "%key%" /v TypesSupported /t REG_DWORD /d 7 /f
if errorlevel 1 goto failed
echo The event source Quillfence is registered.
exit /b 0

:failed
echo The event source could not be registered. Run this script as an administrator.
exit /b 1
