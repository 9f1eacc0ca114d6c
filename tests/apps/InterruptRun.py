"""tez render of the 512^3 sample, interrupted as a user would with Ctrl-C:
it stops within a second with a message and a non-zero exit, writes no
picture, keeps the one an earlier run left and leaves no temporary file.

usage: InterruptRun.py TEZ WORK
"""
import os
import shutil
import signal
import subprocess
import sys
import time

tez, work = sys.argv[1], sys.argv[2]
shutil.rmtree(work, ignore_errors=True)
os.makedirs(work)
subprocess.run([tez, "sample", os.path.join(work, "sample"), "--size", "512"], check=True, stdout=subprocess.DEVNULL)
pattern = os.path.join(work, "sample", "slice%04d.png")


def interrupted(output, delay):
    # A large transparent picture keeps the ray casting busy for seconds.
    command = [tez, "render", pattern, "0", "511", "-o", output, "--size", "4000x3000", "--transparent", "--layers", "4"]
    run = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    time.sleep(delay)
    sent = time.monotonic()
    run.send_signal(signal.SIGINT)
    try:
        out, err = run.communicate(timeout=10)
    except subprocess.TimeoutExpired:
        run.kill()
        sys.exit("tez render did not stop after Ctrl-C")
    took = time.monotonic() - sent
    print(f"Ctrl-C after {delay} s: stopped in {took:.2f} s, exit {run.returncode}: {err.strip()}")
    if run.returncode in (0, 2) or "stopped" not in err:
        sys.exit(f"wanted a stop (exit 1) and a message, got exit {run.returncode}\n{out}\n{err}")
    if took >= 1.0:
        sys.exit(f"took {took:.2f} s to stop")


# Half a second in: while the octree is built; nothing is written.
fresh = os.path.join(work, "fresh.png")
interrupted(fresh, 0.5)
if os.path.exists(fresh):
    sys.exit("a picture was written after Ctrl-C")

# Later, while the rays are cast: the picture of an earlier run stays.
kept = os.path.join(work, "kept.png")
with open(kept, "w") as f:
    f.write("earlier picture")
interrupted(kept, 1.5)
with open(kept) as f:
    if f.read() != "earlier picture":
        sys.exit("the earlier picture was replaced")

left = [name for name in os.listdir(work) if name.startswith(".")]
if left:
    sys.exit(f"temporary files left: {left}")
print("interrupt ok")
