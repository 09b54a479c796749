#!/usr/bin/env bash
# Makes the terminal's card slot a reader of the machine's PC/SC daemon (pcscd):
#
#   install-pcscd-driver.sh DEVICE [DRIVER]   DEVICE: the terminal's tty (/dev/ttyUSB0) or a link
#                                             to it; DRIVER: libifd_varnik.so (default: the one
#                                             beside this script, as in the release archive;
#                                             build/linux/ifd/ of the source tree; or the one
#                                             cmake --install put in the daemon's folder)
#   install-pcscd-driver.sh --remove          takes the reader away again
#
# The driver goes, stripped, where the daemon looks for serial drivers (pkg-config libpcsclite:
# usbdropdir/serial), an entry in its reader folder (serialconfdir) names the device, and the
# daemon is restarted. From then on the daemon owns the port: the library's own exports get 110
# (port unavailable) for it until the reader is removed again.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
pcsc_variable() {
  pkg-config --variable="$1" libpcsclite 2>/dev/null || true
}
drivers="$(pcsc_variable usbdropdir)"
confdir="$(pcsc_variable serialconfdir)"
if [ -z "$drivers" ] || [ -z "$confdir" ]; then
  # Debian's pcsc-lite puts them here; pkg-config needs libpcsclite-dev to say so.
  echo "install-pcscd-driver.sh: pkg-config libpcsclite gave no folders (libpcsclite-dev missing?);" \
       "using Debian's /usr/lib/pcsc/drivers and /etc/reader.conf.d." >&2
  drivers="${drivers:-/usr/lib/pcsc/drivers}"
  confdir="${confdir:-/etc/reader.conf.d}"
fi
driver_path="$drivers/serial/libifd_varnik.so"
entry="$confdir/varnik"

usage() {
  sed -n '3,9s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
  exit 2
}

restart_daemon() {
  if [ -d /run/systemd/system ] && systemctl is-enabled --quiet pcscd.socket 2>/dev/null; then
    # The socket starts the daemon again, with the new configuration, at the next client.
    systemctl stop pcscd.service
    echo "Stopped pcscd.service; pcscd.socket starts it again for the next client."
  else
    echo "Restart pcscd yourself so that it reads $confdir again."
  fi
}

[ $# -ge 1 ] || usage
if [ "$(id -u)" -ne 0 ]; then
  echo "install-pcscd-driver.sh: run it as root (sudo)." >&2
  exit 1
fi

if [ "$1" = "--remove" ]; then
  for file in "$entry" "$driver_path"; do
    if [ -e "$file" ]; then
      rm -f "$file"
      echo "Removed $file"
    else
      echo "Not there: $file"
    fi
  done
  restart_daemon
  exit 0
fi
[ "${1#-}" = "$1" ] || usage

device="$(realpath -s "$1")"
driver="${2:-}"
if [ -z "$driver" ]; then
  # Beside this script (the release archive), in a source tree's build, or where cmake --install
  # has put it already (the entry is all that is missing then).
  for candidate in "$here/libifd_varnik.so" "$here/../build/linux/ifd/libifd_varnik.so" "$driver_path"; do
    [ -f "$candidate" ] && { driver="$candidate"; break; }
  done
fi
if [ ! -e "$device" ]; then
  echo "install-pcscd-driver.sh: $device does not exist (is the terminal plugged in?)." >&2
  exit 1
fi
if [ -z "$driver" ] || [ ! -f "$driver" ]; then
  echo "install-pcscd-driver.sh: no driver${driver:+ at $driver}; give its path, or build it" \
       "(cmake --build --preset linux)." >&2
  exit 1
fi

# The build's driver carries its debug information (megabytes); the daemon needs none of it.
mkdir -p "$(dirname "$driver_path")"
if command -v strip >/dev/null; then
  strip --strip-unneeded -o "$driver_path.new" "$driver"
else
  echo "strip not found (binutils): installing the driver as it is."
  cp "$driver" "$driver_path.new"
fi
chmod 0644 "$driver_path.new"
mv -f "$driver_path.new" "$driver_path"
mkdir -p "$confdir"
cat > "$entry" <<EOF
# The NEW6210 terminal's card slot (Varnik). Remove with install-pcscd-driver.sh --remove
FRIENDLYNAME "NEW6210 Reader Card"
DEVICENAME   $device
LIBPATH      $driver_path
EOF
echo "Installed $driver_path ($(stat -c %s "$driver_path") bytes, from $driver)"
echo "Wrote $entry (DEVICENAME $device)"
restart_daemon
echo "Check with: pcsc_scan -r"
echo "Undo with:  sudo $here/$(basename "${BASH_SOURCE[0]}") --remove"
echo "            (removes $entry and $driver_path, and restarts the daemon)"
