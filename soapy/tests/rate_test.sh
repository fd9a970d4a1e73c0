#!/bin/sh
# SoapySDRUtil's rate test at 10 MS/s for eight seconds, stopped as a person
# stops it (Ctrl-C): the stream must start, report a rate, and end cleanly.
# Overflows ("O" in its output) are counted and told; on a loaded machine
# the simulator's paced device may outrun the host, so they fail the test
# only when QS_SOAPY_STRICT is set (a quiet machine).
util=$1
out=$(mktemp)
timeout -s INT 8 "$util" --args=driver=qs,serial=12345678 --rate=10e6 --direction=RX >"$out" 2>&1
rc=$?
cat "$out"
rates=$(grep -c 'Msps' "$out")
overflows=$(sed -n '/Starting stream loop/,$p' "$out" | tr -cd 'O' | wc -c)
rm -f "$out"
echo "rate test: exit $rc, $rates rate lines, $overflows overflows"
[ "$rc" -eq 0 ] || [ "$rc" -eq 124 ] || [ "$rc" -eq 130 ] || exit 1
[ "$rates" -ge 1 ] || exit 1
[ -z "$QS_SOAPY_STRICT" ] || [ "$overflows" -eq 0 ] || exit 1
