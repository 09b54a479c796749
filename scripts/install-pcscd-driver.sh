#!/usr/bin/env bash
# Makes the terminal's card slot a reader of the machine's PC/SC daemon (pcscd):
#
#   install-pcscd-driver.sh DEVICE [DRIVER]   DEVICE: the terminal's tty (/dev/ttyUSB0) or a link
#                                             to it; DRIVER: the built libifd_varnik.so
#                                             (default build/linux/ifd/libifd_varnik.so)
#   install-pcscd-driver.sh --remove          takes the reader away again
#
# The driver goes where the daemon looks for serial drivers, a reader.conf.d entry names the
# device, and the daemon is restarted. From then on the daemon owns the port: the library's own
# exports get 110 (port unavailable) for it until the reader is removed again.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
drivers="$(pkg-config --variable=usbdropdir libpcsclite 2>/dev/null || echo /usr/lib/pcsc/drivers)"
driver_path="$drivers/serial/libifd_varnik.so"
entry=/etc/reader.conf.d/varnik

usage() {
  sed -n '3,7s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
  exit 2
}

restart_daemon() {
  if [ -d /run/systemd/system ] && systemctl is-enabled --quiet pcscd.socket 2>/dev/null; then
    # The socket starts the daemon again, with the new configuration, at the next client.
    systemctl stop pcscd.service
    echo "pcscd stopped; its socket starts it again for the next client."
  else
    echo "Restart pcscd so that it reads $(dirname "$entry") again."
  fi
}

[ $# -ge 1 ] || usage
if [ "$(id -u)" -ne 0 ]; then
  echo "install-pcscd-driver.sh: run it as root (sudo)." >&2
  exit 1
fi

if [ "$1" = "--remove" ]; then
  rm -f "$entry" "$driver_path"
  echo "Removed $entry and $driver_path."
  restart_daemon
  exit 0
fi
[ "${1#-}" = "$1" ] || usage

device="$(realpath -s "$1")"
driver="${2:-$root/build/linux/ifd/libifd_varnik.so}"
if [ ! -e "$device" ]; then
  echo "install-pcscd-driver.sh: $device does not exist (is the terminal plugged in?)." >&2
  exit 1
fi
if [ ! -f "$driver" ]; then
  echo "install-pcscd-driver.sh: no driver at $driver; build it first" \
       "(cmake --build --preset linux)." >&2
  exit 1
fi

install -D -m 0644 "$driver" "$driver_path"
mkdir -p "$(dirname "$entry")"
cat > "$entry" <<EOF
# The NEW6210 terminal's card slot (Varnik). Remove with scripts/install-pcscd-driver.sh --remove
FRIENDLYNAME "NEW6210 Reader Card"
DEVICENAME   $device
LIBPATH      $driver_path
EOF
echo "Installed $driver_path and $entry (DEVICENAME $device)."
restart_daemon
echo "Check with: pcsc_scan -r"
