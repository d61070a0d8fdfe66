#!/usr/bin/env bash
# Installs the Debian packages Plenavue needs to build, run and test.
# Idempotent: asks apt only for what is missing, and does nothing when all is there.
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  qt6-base-dev qt6-base-dev-tools qt6-multimedia-dev libqt6svg6 qt6-svg-dev
  libxcb1-dev libxcb-composite0-dev libxcb-shm0-dev libxcb-randr0-dev
  libxcb-keysyms1-dev libxcb-res0-dev libxcb-damage0-dev libxcb-shape0-dev
  libpng-dev nlohmann-json3-dev libcli11-dev libfmt-dev
  libxkbcommon-dev xkb-data
  # KDE Plasma on Wayland: a headless KWin with Breeze decorations and Xwayland,
  # Qt's Wayland platform for test windows, key presses through KWin's fake
  # input (tests build a client of it), D-Bus tools; weston as a compositor we
  # have no backend for
  kwin-wayland kwin-style-breeze xwayland qt6-wayland weston
  libwayland-dev libwayland-bin plasma-wayland-protocols dbus-daemon libglib2.0-bin
  # GNOME on Wayland: a headless GNOME Shell (our extension runs in it) with
  # Xwayland; gjs checks the extension's scripts
  gnome-shell gjs
  # the fuzz targets: clang with libFuzzer and its sanitizer runtimes
  clang-14 libclang-rt-14-dev
  # running on a private X server, and the real X clients used as sample windows
  xvfb xauth openbox x11-apps x11-utils x11-xserver-utils xterm xdotool trayer
  # the desktop matrix: real window managers, compositors and GTK clients
  dbus-daemon xfwm4 xfconf metacity marco mate-settings-daemon-common kwin-x11 i3-wm fluxbox picom xcompmgr
  python3-gi gir1.2-gtk-3.0 gir1.2-gtk-4.0
  # independent readers of our files
  python3 python3-psd-tools python3-numpy python3-pil imagemagick gimp
  # the benchmarks' flat screenshot to compare with
  scrot
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q '^install ok installed$'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing missing packages: ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
