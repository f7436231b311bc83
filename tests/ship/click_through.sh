#!/bin/sh
# Within a fresh system with a display, for script/try-bundles: in the current directory are brook.run
# and brook.tar.xz.
#   click_through.sh bundled|system WAY...   which Qt is to be in use; what is tried
# Writes a tar of pictures to standard output, and what happens to standard error.
set -u
exec 3>&1 1>&2
expected=$1
shift

# finish <status>: hands the pictures out.
finish() {
  tar c -- *.png >&3
  exit "$1"
}
fail() {
  echo "FAILED: $*"
  import -window root failed.png
  finish 1
}
window() {
  for _ in $(seq 300); do
    window=$(xdotool search --onlyvisible --class quarn-setup 2>/dev/null | tail -n 1)
    [ -z "$window" ] || return 0
    sleep 0.2
  done
  return 1
}
# installed <way>: whether the wizard did its work and left nothing else.
installed() {
  [ "$(find ~/.quarn/Orbex/quarn/tmplts -type f | wc -l)" -gt 10 ] || fail "$1: nothing was installed"
  grep -q '^ConfigurationTemplatesLocation=/home/' ~/.Orbex/qlaunch/qlaunch.cfg || fail "$1: nothing was recorded"
  for _ in $(seq 50); do
    left=$(find /tmp /var/tmp -name 'quarn-*')
    [ -n "$left" ] || break
    sleep 0.2
  done
  [ -z "$left" ] || fail "$1: left $left"
  rm -r ~/.quarn ~/.Orbex
  echo "$1: installed, and nothing left"
}
# The button Next is where Install and Finish are.
click_through() {
  window || fail "$1: no window"
  sleep 1
  process=$(pgrep -x setup | head -n 1)
  qt=$(awk '/libQt6Core/ { print $6; exit }' "/proc/$process/maps")
  case $expected:$qt in
    bundled:*/brook/lib/* | system:/usr/lib/*) echo "$1: uses $qt" ;;
    *) fail "$1: uses $qt" ;;
  esac
  number=0
  seen=
  for _ in $(seq 100); do
    kill -0 "$process" 2>/dev/null || break
    import -window root page.png
    if [ "$(cksum <page.png)" != "$seen" ]; then
      number=$((number + 1))
      seen=$(cksum <page.png)
      cp page.png "$1-$number.png"
    fi
    window && xdotool mousemove --window "$window" 350 335 sleep 0.2 click 1
    sleep 2
  done
  rm page.png
  installed "$1"
}

tar xf brook.tar.xz || fail "the archive"
for way; do
  case $way in
    entry) (cd brook && gio launch setup.desktop) && click_through "$way" ;;
    single) ./brook.run & click_through "$way" ;;
    silent) env -u DISPLAY brook/start-setup -S && installed "$way" ;;
    silent-single) env -u DISPLAY ./brook.run -S && installed "$way" ;;
    *) brook/start-setup & click_through "$way" ;;
  esac
done
wait
finish 0
