b=build/release
mkfifo /tmp/o /tmp/c; exec 3<>/tmp/o 4<>/tmp/c
$b/kelo-emulator --model EC25 --trace --order "wwan wwan0" </tmp/o >/tmp/emu.log 2>&1 3>&- 4>&- &
e=$!
sleep 0.5
$b/kelo-host --commands --json --apn internet --ping-target 10.64.0.1 </tmp/c 2>/tmp/host.err >/tmp/host.json 3>&- 4>&- &
h=$!
sleep 45
echo "csq 12" >&3; echo "report +CSQ: 12,99" >&3
sleep 20; echo state >&3; sleep 0.2
cat /tmp/host.json | tail -5; tail -30 /tmp/emu.log; ls /proc/$h/fd | wc -l; grep -E "Threads|VmRSS" /proc/$h/status; for t in /proc/$h/task/*; do cat $t/comm; done; cat /proc/net/route; cat /tmp/quectel-CM.log
echo quit >&4; wait $h; kill $e; killall -q quectel-CM
