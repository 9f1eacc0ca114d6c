#!/usr/bin/env bash
# Drives `tez view` as a person would: on a virtual X display, with mouse
# drags, the wheel and keys sent by xdotool, and checks the pictures that the
# screenshot key writes: an orbit changes the picture, a wheel step and a
# zoom window magnify it, the front view key gives the front view, and one
# undo takes the zoom window back. It also grabs the whole screen, as a user
# would, and checks the window closes only after a second close when there
# are unsaved changes.
#
# usage: scripts/view-test.sh [TEZ] [WORK]   (defaults: build/bin/tez, build/view-test)
# Exit 77 (CTest's skip) when Xvfb, xdotool or ImageMagick is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
tez=$(realpath "${1:-build/bin/tez}")
work=${2:-build/view-test}

for tool in Xvfb xdotool convert compare import; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "view-test: $tool is not installed; skipped"
    exit 77
  fi
done

rm -rf "$work"
mkdir -p "$work"
work=$(realpath "$work")
cd "$work"

# A free display number.
display=
for n in $(seq 70 99); do
  if [ ! -e /tmp/.X11-unix/X$n ] && [ ! -e /tmp/.X$n-lock ]; then display=:$n; break; fi
done
[ -n "$display" ] || { echo "view-test: no free X display number"; exit 1; }
Xvfb "$display" -screen 0 1024x768x24 -nolisten tcp >xvfb.log 2>&1 &
xvfb=$!
viewer=
cleanup() {
  [ -n "$viewer" ] && kill "$viewer" 2>/dev/null || true
  kill "$xvfb" 2>/dev/null || true
}
trap cleanup EXIT
export DISPLAY=$display
for _ in $(seq 50); do
  [ -e /tmp/.X11-unix/X${display#:} ] && break
  sleep 0.1
done

fail() {
  echo "view-test: FAILED: $*"
  echo "--- tez view said:"; cat view.out view.err 2>/dev/null || true
  exit 1
}

# The share of the picture covered by the (beige) object: the background is
# blue-grey, so red above blue marks the object.
coverage() { convert "$1" -fx 'r>b+0.03?1:0' -format '%[fx:mean]' info:; }
differ() { # pixels that differ by more than 3%
  compare -metric AE -fuzz 3% "$1" "$2" null: 2>&1 || true
}
more() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a > b * 1.15) }'; }

# The reference front view, drawn off-screen the way the key draws it.
"$tez" view --sample 64 --offscreen --size 640x480 --view front --export ref-front.png >/dev/null

"$tez" view --sample 64 --size 640x480 --history history.py </dev/null >view.out 2>view.err &
viewer=$!
for _ in $(seq 300); do
  grep -q "ready after" view.out 2>/dev/null && break
  kill -0 "$viewer" 2>/dev/null || fail "tez view ended early"
  sleep 0.1
done
grep -q "ready after" view.out || fail "tez view did not get ready within 30 s"
up=$(sed -n 's/.*window up after \([0-9.]*\) s/\1/p' view.out)
awk -v s="$up" 'BEGIN { exit !(s < 2.0) }' || fail "the window took $up s to come up"
win=$(xdotool search --sync --name 'tez view' | head -1)
xdotool windowactivate --sync "$win" 2>/dev/null || xdotool windowfocus --sync "$win" || true
sleep 0.3

shots=0
shot() { # the screenshot key, then wait for its file
  shots=$((shots + 1))
  xdotool key --window "$win" p
  for _ in $(seq 100); do
    grep -q "wrote ./tez-view-$shots.png" view.out 2>/dev/null && break
    sleep 0.1
  done
  [ -s "tez-view-$shots.png" ] || fail "the screenshot key wrote no tez-view-$shots.png"
  cp "tez-view-$shots.png" "$1.png"
}

shot start

# Orbit: a middle-button drag.
xdotool mousemove --window "$win" 320 240 mousedown 2
for i in $(seq 1 8); do
  xdotool mousemove --window "$win" $((320 + 12 * i)) $((240 + 5 * i))
  sleep 0.05
done
xdotool mouseup 2
sleep 0.3
shot orbit
changed=$(differ start.png orbit.png)
[ "${changed%%.*}" -gt 5000 ] || fail "the orbit changed only $changed pixels"

# The whole screen, as a user grabs it.
import -window root root.png
[ "$(convert root.png -format '%[fx:standard_deviation>0.01]' info:)" = 1 ] || fail "the screen grab is blank"

# Zoom in: two wheel steps up.
xdotool mousemove --window "$win" 320 240 click 4 click 4
sleep 0.3
shot wheel
more "$(coverage wheel.png)" "$(coverage orbit.png)" || fail "the wheel did not magnify the object"

# The front view key.
xdotool key --window "$win" 1
sleep 1.5
shot front
same=$(differ front.png ref-front.png)
[ "${same%%.*}" -lt 200 ] || fail "the front view key gave another picture ($same pixels differ from the reference)"

# A zoom window: Ctrl and a left drag over the middle half; then one undo.
xdotool keydown --window "$win" ctrl
xdotool mousemove --window "$win" 160 120 mousedown 1
for i in $(seq 1 8); do
  xdotool mousemove --window "$win" $((160 + 40 * i)) $((120 + 30 * i))
  sleep 0.05
done
xdotool mouseup 1
xdotool keyup --window "$win" ctrl
sleep 1.5
shot window
more "$(coverage window.png)" "$(coverage front.png)" || fail "the zoom window did not magnify the object"
xdotool key --window "$win" ctrl+z
sleep 1.5
shot undone
same=$(differ undone.png front.png)
[ "${same%%.*}" -lt 50 ] || fail "one undo did not take the zoom window back ($same pixels differ)"

# Closing with unsaved changes (the built volume was never saved): the
# first close is refused with a word, the second one closes.
xdotool key --window "$win" Escape
sleep 0.5
kill -0 "$viewer" 2>/dev/null || fail "the window closed over unsaved changes"
grep -q "unsaved changes" view.err || fail "no word about the unsaved changes"
# The window may be gone before xdotool is done with it.
xdotool key --window "$win" Escape 2>/dev/null || true
for _ in $(seq 50); do
  kill -0 "$viewer" 2>/dev/null || break
  sleep 0.1
done
if kill -0 "$viewer" 2>/dev/null; then fail "the second close did not close"; fi
wait "$viewer" || fail "tez view exited with $?"
viewer=
grep -q "tez.move_focus(" history.py || fail "the history holds no camera pose"
[ "$(grep -c "tez.export_main_window(" history.py)" = "$shots" ] || fail "the history holds not all $shots screenshots"

echo "view-test: window up after $up s; orbit, wheel, front view, zoom window and undo as expected; pictures in $work"
