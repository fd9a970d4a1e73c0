#!/bin/sh
# Prints a help2man include file: the help of every subcommand of the qs
# program given, as a section of its manual page.
qs=$1
echo "[SUBCOMMANDS]"
for sub in list info sweep iq audio realtime tg; do
  echo ".SS qs $sub"
  echo ".nf"
  "$qs" "$sub" --help | sed -e '1d' -e 's/\\/\\\\/g' -e 's/^\./\\\&./'
  echo ".fi"
done
echo "[EXAMPLES]"
echo ".nf"
echo "qs --simulate sweep --start 88M --stop 108M --format power --continuous --exit-after 20s -o fm.csv"
echo "qs --simulate --sim-tone 1.501G:-40 iq --center 1.5G --rate 10M --samples 1000000 -o rec"
echo "qs --simulate --sim-tone 100.001M:-40 audio --freq 100M --demod usb --duration 1 -o tone.wav"
echo "qs --simulate realtime --center 2.42G --frames 60 --png frame.png --waterfall waterfall.png"
echo "qs --simulate tg --start 900M --stop 1.1G --thru && qs --simulate tg --start 900M --stop 1.1G -o s21.csv --png s21.png"
echo ".fi"
