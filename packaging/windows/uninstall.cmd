@echo off
rem Removes the event source "Quillfence". Run it as an administrator; then delete the folder.
reg delete "HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Quillfence" /f
if errorlevel 1 exit /b 1
echo The event source Quillfence is removed.
