#!/bin/sh
# Writes tests/data/wine-export.reg: keys that are made by "reg import" and written again by "reg
# export" of Wine, so that the reader meets an export that it did not write itself. Run it with an
# empty folder for a Wine prefix:
#
#     tests/data/make-wine-export.sh PREFIX
set -eu
here=$(cd "$(dirname "$0")" && pwd)
export WINEPREFIX="$1"
wine=$here/../../scripts/wine-run
"$wine" wineboot --init

cat >"$WINEPREFIX/drive_c/keys.reg" <<'KEYS'
REGEDIT4

[HKEY_LOCAL_MACHINE\SOFTWARE\Mail Enable\Mail Enable]
"Configuration Directory"="C:\\Program Files (x86)\\Mail Enable\\Config"
"Quote \"and\" backslash \\"="\"C:\\\""
@="the default value"
"Expandable"=hex(2):25,54,45,4d,50,25,00
"Several"=hex(7):6f,6e,65,00,74,77,6f,00,00
"Bytes"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,17,18,19,1a,1b,1c,1d,1e,1f,20,21,22,23,24,25,26,27,28,29,2a,2b,2c,2d,2e,2f
"Nothing"=hex:
"Large number"=hex(b):01,02,03,04,05,06,07,08
"Unfinished"=hex(1):61,62,63
"Lines"="one\r\ntwo"

[HKEY_LOCAL_MACHINE\SOFTWARE\Mail Enable\Mail Enable\Connectors\SMTP]
"IP White Listing Status"=dword:00000001

[HKEY_LOCAL_MACHINE\SOFTWARE\Mail Enable\Mail Enable\Connectors\SMTP\White List]
"192.0.2.*"=""
"198.51.100.7"=""
KEYS
"$wine" reg import 'c:\keys.reg'
"$wine" reg export 'HKLM\SOFTWARE\Mail Enable' 'c:\export.reg' /y
cp "$WINEPREFIX/drive_c/export.reg" "$here/wine-export.reg"
