#!/usr/bin/env python3
"""Power cuts on a real kernel and real file systems (run by scripts/powercut.sh).

Debian's kernel boots under qemu from a small initramfs: busybox, the modules the file system
needs, and the guest driver (iqa_powercut_driver, with the iqa program and their shared
libraries). Its disk is served by an NBD server of ours, which keeps the writes the guest has not
flushed apart from those it has. Per cut: the guest boots, mounts the file system (which recovers
as it does after a power failure), a manager starts and `iqa recover` runs, every photo is
checked against what the dumps logged, a fresh camera root is made, and dumps and batch runs go
on until, at a seeded instant, the power is cut:

  model a  the guest dies at once: its page cache is lost, every write the disk accepted is kept;
  model b  the disk's volatile cache is lost too: the writes it accepted since its last flush are
           dropped, all of them or a seeded prefix (a write with FUA is kept).

At the seeded instant the disk is armed to fail as it accepts one of its next few writes (while
it is writing, not between operations): that write reaches the medium up to a seeded block, the
model applies to the others, whatever reaches the disk from then on is lost, and the machine is
reset (stopping it first would flush the disk). One qemu process goes through all the cuts of a
file system and a model. A photo must be its original or the original plus exactly the records
whose dumps logged success, plus at most the one under way; no thumbnail that was stocked may be
lost unless its photo was evaluated. Every boot and every answer has a deadline.

With --control the guest's dumps rewrite photos in place with no journal, as writers of image
metadata do; torn photos are then expected, which shows that the check sees them.
"""
import argparse
import concurrent.futures
import fcntl
import json
import lzma
import os
import queue
import random
import select
import shutil
import socket
import stat
import struct
import subprocess
import sys
import termios
import threading
import time

BOOT_SECONDS = 90      # from a reset to the driver's READY, under emulation on a busy host
ANSWER_SECONDS = 120   # for one command's answer
IMAGE_BYTES = 128 << 20
BLOCK = 4096           # what the disk writes whole: the logical block of a phone's flash storage


def tool(name):
    """A system program, also where /sbin is not on the PATH (a user's shell)."""
    return shutil.which(name) or "/sbin/" + name


class Failure(Exception):
    """The harness cannot go on: a boot, an answer or qemu itself failed."""


# ---------------------------------------------------------------------------------------------
# The disk: what the guest wrote, durable or still in the disk's volatile cache.

class Disk:
    def __init__(self, image):
        self.durable = bytearray(image)
        self.pending = []  # (offset, bytes, fua) in the order the disk accepted them
        self.lock = threading.Lock()
        self.writes = self.flushes = 0
        # From the cut until the machine has been reset, what reaches the disk is acknowledged and
        # lost, as on a disk without power: requests still in flight never hang the reset.
        self.dead = False
        self.armed = None    # [writes to go, model, rng] of a cut to come
        self.outcome = None  # (kept, dropped) of the cut, once it came
        self.on_cut = lambda: None  # told at the instant of the cut

    def read(self, offset, length):
        with self.lock:
            data = bytearray(self.durable[offset:offset + length])
            for at, bytes_, _ in self.pending:
                lo, hi = max(at, offset), min(at + len(bytes_), offset + length)
                if lo < hi:
                    data[lo - offset:hi - offset] = bytes_[lo - at:hi - at]
            return bytes(data)

    def write(self, offset, data, fua):
        with self.lock:
            if self.dead:
                return
            self.pending.append((offset, bytes(data), fua))
            self.writes += 1
            if self.armed is not None:
                self.armed[0] -= 1
                if self.armed[0] == 0:
                    # The power fails while this write is under way: the blocks before a seeded
                    # one reached the medium, the others did not.
                    rng = self.armed[2]
                    blocks = rng.randint(0, len(data) // BLOCK)
                    self.pending[-1] = (offset, bytes(data[:blocks * BLOCK]), fua)
                    self._cut(*self.armed[1:])

    def flush(self):
        with self.lock:
            if not self.dead:
                self._apply(self.pending)
                self.pending = []
                self.flushes += 1

    def _apply(self, writes):
        for at, bytes_, _ in writes:
            self.durable[at:at + len(bytes_)] = bytes_

    def arm(self, writes, model, rng):
        """The power fails as the disk accepts its `writes`-th write from now: while it writes."""
        with self.lock:
            self.armed = [writes, model, rng]
            self.outcome = None

    def cut(self, model, rng):
        """The power fails now, unless an armed cut came first. Returns how many unflushed writes
        were kept and dropped."""
        with self.lock:
            if self.outcome is None:
                self._cut(model, rng)
            return self.outcome

    def _cut(self, model, rng):
        if model == "a":
            kept = self.pending
        else:
            prefix = 0 if rng.random() < 0.5 else rng.randint(0, len(self.pending))
            kept = self.pending[:prefix] + [w for w in self.pending[prefix:] if w[2]]
        self._apply(kept)
        self.on_cut()
        self.outcome = (len(kept), len(self.pending) - len(kept))
        self.pending = []
        self.dead = True
        self.armed = None

    def power_on(self):
        with self.lock:
            self.dead = False
            self.outcome = None


class NbdServer:
    """The fixed-newstyle NBD protocol, as much of it as qemu's client uses, over a Unix socket."""
    MAGIC, OPT_MAGIC, REPLY_MAGIC = 0x4E42444D41474943, 0x49484156454F5054, 0x3E889045565A9
    REQUEST, SIMPLE_REPLY = 0x25609513, 0x67446698
    OPT_EXPORT_NAME, OPT_ABORT, OPT_GO = 1, 2, 7
    REP_ACK, REP_INFO, REP_ERR_UNSUP = 1, 3, (1 << 31) + 1
    FLAGS = 1 | 4 | 8  # has flags, sends flush, sends FUA
    CMD_READ, CMD_WRITE, CMD_DISC, CMD_FLUSH = 0, 1, 2, 3

    def __init__(self, path, disk):
        self.disk = disk
        if os.path.exists(path):
            os.unlink(path)
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(path)
        self.listener.listen(1)
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            with connection:
                try:
                    if self._negotiate(connection):
                        self._transmit(connection)
                except (OSError, ConnectionError, struct.error):
                    pass

    @staticmethod
    def _exact(connection, count):
        data = b""
        while len(data) < count:
            chunk = connection.recv(count - len(data))
            if not chunk:
                raise ConnectionError("the client went away")
            data += chunk
        return data

    def _reply(self, connection, option, kind, data=b""):
        connection.sendall(struct.pack(">QIII", self.REPLY_MAGIC, option, kind, len(data)) + data)

    def _negotiate(self, connection):
        connection.sendall(struct.pack(">QQH", self.MAGIC, self.OPT_MAGIC, 1 | 2))
        (client_flags,) = struct.unpack(">I", self._exact(connection, 4))
        size = len(self.disk.durable)
        while True:
            _, option, length = struct.unpack(">QII", self._exact(connection, 16))
            self._exact(connection, length)
            if option == self.OPT_EXPORT_NAME:
                zeroes = b"" if client_flags & 2 else bytes(124)
                connection.sendall(struct.pack(">QH", size, self.FLAGS) + zeroes)
                return True
            if option == self.OPT_GO:
                self._reply(connection, option, self.REP_INFO, struct.pack(">HQH", 0, size, self.FLAGS))
                self._reply(connection, option, self.REP_ACK)
                return True
            if option == self.OPT_ABORT:
                self._reply(connection, option, self.REP_ACK)
                return False
            self._reply(connection, option, self.REP_ERR_UNSUP)

    def _transmit(self, connection):
        while True:
            magic, flags, kind, handle, offset, length = struct.unpack(
                ">IHHQQI", self._exact(connection, 28))
            if magic != self.REQUEST:
                raise ConnectionError("not an NBD request")
            header = struct.pack(">IIQ", self.SIMPLE_REPLY, 0, handle)
            if kind == self.CMD_READ:
                connection.sendall(header + self.disk.read(offset, length))
            elif kind == self.CMD_WRITE:
                self.disk.write(offset, self._exact(connection, length), flags & 1)
                connection.sendall(header)
            elif kind == self.CMD_FLUSH:
                self.disk.flush()
                connection.sendall(header)
            elif kind == self.CMD_DISC:
                return
            else:
                connection.sendall(struct.pack(">IIQ", self.SIMPLE_REPLY, 22, handle))  # EINVAL


# ---------------------------------------------------------------------------------------------
# The initramfs, written as a newc archive by hand: no cpio program, no root needed.

def newc(entries):
    out = bytearray()
    for ino, (name, mode, data, rdev) in enumerate(entries + [("TRAILER!!!", 0, b"", (0, 0))], 1):
        encoded = name.encode() + b"\0"
        fields = [ino, mode, 0, 0, 1, 0, len(data), 0, 0, rdev[0], rdev[1], len(encoded), 0]
        out += b"070701" + b"".join(b"%08X" % f for f in fields) + encoded
        out += bytes(-len(out) % 4)
        out += data
        out += bytes(-len(out) % 4)
    return bytes(out)


def shared_libraries(programs):
    """Every library the programs load, by the path the loader finds it at, and the loader."""
    found = {}
    for program in programs:
        listing = subprocess.run(["ldd", program], capture_output=True, text=True, check=True)
        for line in listing.stdout.splitlines():
            words = line.split()
            path = words[2] if "=>" in words and len(words) > 2 else words[0]
            if path.startswith("/"):
                found[path] = os.path.realpath(path)
    return found


INIT = """#!/bin/busybox sh
/bin/busybox --install -s /bin
mkdir -p /proc /sys /dev /mnt /tmp
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
for module in $(cat /modules/order); do insmod /modules/$module 2>/dev/null; done
fs=$(sed -n 's/.*iqa.fs=\\([a-z0-9]*\\).*/\\1/p' /proc/cmdline)
waited=0
while [ ! -b /dev/vda ] && [ $waited -lt 100 ]; do sleep 0.1; waited=$((waited + 1)); done
if ! mount -t "$fs" /dev/vda /mnt; then
  echo "@@ ERR mount $fs"
  exec sleep 100000
fi
echo "@@ MOUNTED $fs"
cd /mnt
export PATH=/bin LD_LIBRARY_PATH=/lib/iqa
exec /bin/iqa_powercut_driver
"""


def unpacked_kernel(vmlinuz, out):
    """The kernel as the ELF inside its self-extracting image. qemu enters it directly through
    its PVH note: under emulation the image's own decompression took 4 of a boot's 9 seconds, and
    every cut pays a boot."""
    with open(vmlinuz, "rb") as f:
        image = f.read()
    start = image.find(b"\xfd7zXZ\x00")
    if start < 0:
        return vmlinuz
    elf = lzma.LZMADecompressor(format=lzma.FORMAT_XZ).decompress(image[start:])
    if not elf.startswith(b"\x7fELF"):
        return vmlinuz
    with open(out, "wb") as f:
        f.write(elf)
    return out


def build_initramfs(kernel_root, release, driver, iqa, out):
    entries, order = [], []
    for directory in ["/bin", "/dev", "/lib", "/lib/iqa", "/lib64", "/modules", "/proc", "/sys",
                      "/mnt", "/tmp"]:
        entries.append((directory.lstrip("/"), stat.S_IFDIR | 0o755, b"", (0, 0)))
    entries.append(("dev/console", stat.S_IFCHR | 0o600, b"", (5, 1)))
    entries.append(("init", stat.S_IFREG | 0o755, INIT.encode(), (0, 0)))

    def add_file(name, path, mode=0o755):
        with open(path, "rb") as f:
            entries.append((name, stat.S_IFREG | mode, f.read(), (0, 0)))

    add_file("bin/busybox", "/bin/busybox")
    add_file("bin/iqa_powercut_driver", driver)
    add_file("bin/iqa", iqa)
    for path, real in shared_libraries([driver, iqa]).items():
        name = os.path.basename(path)
        target = "lib64/" + name if name.startswith("ld-linux") else "lib/iqa/" + name
        add_file(target, real)
    # Each file system's modules with what they depend on, in load order; the accelerated crc32
    # ones fail on a CPU without the instructions and the generic ones take over.
    for module in ["virtio_pci", "virtio_blk", "f2fs", "ext4"]:
        listing = subprocess.run([tool("modprobe"), "-d", kernel_root, "-S", release, "--show-depends",
                                  module], capture_output=True, text=True, check=True)
        for line in listing.stdout.splitlines():
            words = line.split()
            if words and words[0] == "insmod" and os.path.basename(words[1]) not in order:
                order.append(os.path.basename(words[1]))
                add_file("modules/" + order[-1], words[1], 0o644)
    entries.append(("modules/order", stat.S_IFREG | 0o644, "\n".join(order).encode(), (0, 0)))
    with open(out, "wb") as f:
        f.write(newc(entries))


# ---------------------------------------------------------------------------------------------
# One qemu process and its serial console and QMP monitor.

class Machine:
    def __init__(self, work, kernel, initramfs, fs, accel):
        self.work = work
        self.qmp_path = os.path.join(work, "qmp.sock")
        self.nbd_path = os.path.join(work, "nbd.sock")
        if os.path.exists(self.qmp_path):
            os.unlink(self.qmp_path)
        command = ["qemu-system-x86_64", "-nodefaults", "-no-user-config", "-m", "512",
                   "-smp", "1", "-display", "none", "-serial", "stdio",
                   "-kernel", kernel, "-initrd", initramfs,
                   "-append", "console=ttyS0 quiet panic=-1 iqa.fs=" + fs,
                   "-drive", "file=nbd+unix:///?socket=%s,format=raw,if=none,id=disk,"
                   "cache=writeback" % self.nbd_path,
                   "-device", "virtio-blk-pci,drive=disk,logical_block_size=%d,"
                   "physical_block_size=%d" % (BLOCK, BLOCK),
                   "-qmp", "unix:%s,server=on,wait=off" % self.qmp_path] + accel
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, bufsize=0)
        self.lines = queue.Queue()
        self.console = []  # the last lines of the serial console, for a failure's message
        # Lines that end in (drop_from, drop_to] of the console's bytes were printed after a cut
        # and before the reset: the guest printed them with no power.
        self.read_lock = threading.Lock()
        self.read_offset = 0
        self.drop_from = self.drop_to = float("inf")
        threading.Thread(target=self._read, daemon=True).start()
        try:
            self.qmp = self._connect_qmp()
        except OSError as error:
            self.close()
            raise Failure("qemu's monitor failed (%s); the console said:\n%s"
                          % (error, "\n".join(self.console)))

    def _read(self):
        fd = self.process.stdout.fileno()
        pending = b""
        while True:
            select.select([fd], [], [])
            with self.read_lock:
                chunk = os.read(fd, 65536)
                start = self.read_offset
                self.read_offset += len(chunk)
                drop = (self.drop_from, self.drop_to)
            if not chunk:
                self.lines.put(None)
                return
            begin = start - len(pending)  # where `pending` starts in the console's output
            pending += chunk
            *complete, pending = pending.split(b"\n")
            for line in complete:
                begin += len(line) + 1  # now the offset just past this line
                text = line.decode(errors="replace").rstrip("\r")
                self.console = (self.console + [text])[-40:]
                if text.startswith("@@ ") and not drop[0] < begin <= drop[1]:
                    self.lines.put(text[3:])

    def _written(self):
        """How much qemu has written to the console so far, read or not (under read_lock)."""
        waiting = fcntl.ioctl(self.process.stdout.fileno(), termios.FIONREAD, b"\0\0\0\0")
        return self.read_offset + struct.unpack("i", waiting)[0]

    def cut_lines(self):
        """The power fails: what the guest prints from now on never happened."""
        with self.read_lock:
            self.drop_from, self.drop_to = self._written(), float("inf")

    def reset_lines(self):
        """The machine was reset: what it prints from now on is the next boot's."""
        with self.read_lock:
            self.drop_to = self._written()

    def _connect_qmp(self):
        deadline = time.monotonic() + 30
        while True:
            try:
                qmp = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
                qmp.connect(self.qmp_path)
                break
            except OSError:
                if time.monotonic() > deadline or self.process.poll() is not None:
                    raise Failure("qemu did not open its monitor:\n" + "\n".join(self.console))
                time.sleep(0.1)
        qmp.settimeout(30)
        self.events = []
        self._qmp_file = qmp.makefile("rw")
        self._qmp_file.readline()  # the greeting
        self.monitor("qmp_capabilities")
        return qmp

    def _next_message(self, during):
        line = self._qmp_file.readline()
        if not line:
            raise Failure("qemu's monitor closed during " + during)
        message = json.loads(line)
        if "event" in message:
            self.events.append(message["event"])
        return message

    def monitor(self, command):
        self._qmp_file.write(json.dumps({"execute": command}) + "\n")
        self._qmp_file.flush()
        while True:
            answer = self._next_message(command)
            if "return" in answer:
                return
            if "error" in answer:
                raise Failure("qemu refused %s: %s" % (command, answer["error"]))

    def wait_event(self, event):
        """Waits (within the monitor's timeout) for qemu to report `event`."""
        while event not in self.events:
            self._next_message("the wait for " + event)
        self.events.remove(event)

    def send(self, line):
        self.process.stdin.write((line + "\n").encode())
        self.process.stdin.flush()

    def expect(self, seconds, what, stop=lambda line: True):
        """The driver's lines up to the first one `stop` accepts, within the deadline."""
        if os.environ.get("IQA_POWERCUT_TRACE"):
            print("  %.1f %s" % (time.monotonic(), what), flush=True)
        seen, deadline = [], time.monotonic() + seconds
        while True:
            try:
                line = self.lines.get(timeout=max(0.01, deadline - time.monotonic()))
            except queue.Empty:
                raise Failure("%s: nothing within %d s; the console said:\n%s"
                              % (what, seconds, "\n".join(self.console)))
            if line is None:
                raise Failure("%s: qemu ended; the console said:\n%s"
                              % (what, "\n".join(self.console)))
            seen.append(line)
            if stop(line):
                return seen
            if line.startswith("ERR"):
                raise Failure("%s: %s; the console said:\n%s"
                              % (what, line, "\n".join(self.console)))

    def drain(self, quiet):
        """The lines already on their way, until the console has been quiet for `quiet` s."""
        seen = []
        while True:
            try:
                line = self.lines.get(timeout=quiet)
            except queue.Empty:
                return seen
            if line is None:
                raise Failure("qemu ended; the console said:\n" + "\n".join(self.console))
            seen.append(line)

    def close(self):
        self.process.kill()
        self.process.wait()


# ---------------------------------------------------------------------------------------------
# What the dumps logged, and what each photo must therefore hold.

PHOTOS = ["D0", "D1", "D2", "B0", "B1"]


class Session:
    def __init__(self):
        self.committed = {name: [] for name in PHOTOS}
        self.under_way = None     # (op, photo) begun and not ended
        self.stocked = False      # its thumbnail made durable
        self.evaluated = False    # its SSIM computed: the thumbnail may be deleted from here on

    def take(self, line):
        words = line.split(" ", 3)
        if words[0] == "BEGIN":
            self.under_way, self.stocked, self.evaluated = (int(words[1]), words[2]), False, False
        elif words[0] == "STOCKED":
            self.stocked = True
        elif words[0] == "LOG" and "]:ssim result: " in line:
            self.evaluated = True
        elif words[0] == "END":
            if len(words) > 3 and (words[3].startswith("save custombuffer in ")
                                   or words[3].endswith("the next recovery completes it.")):
                self.committed[words[2]].append(int(words[1]))
            self.under_way = None

    def tokens(self):
        out = []
        for name in PHOTOS:
            token = name + "=" + ",".join(map(str, self.committed[name]))
            if self.under_way and self.under_way[1] == name:
                token += "?%d" % self.under_way[0]
                if self.stocked and not self.evaluated:
                    token += "!"
            out.append(token)
        return " ".join(out)


def probe_accelerator(kernel, initramfs, work):
    """KVM where a probe boot reaches the driver within a few seconds, else plain emulation."""
    if not os.access("/dev/kvm", os.R_OK | os.W_OK):
        return ["-accel", "tcg"], "TCG (no /dev/kvm)"
    probe = os.path.join(work, "probe")
    os.makedirs(probe, exist_ok=True)
    disk = Disk(bytes(1 << 20))
    NbdServer(os.path.join(probe, "nbd.sock"), disk)
    try:
        machine = Machine(probe, kernel, initramfs, "none", ["-accel", "kvm", "-cpu", "max"])
    except Failure:
        return ["-accel", "tcg"], "TCG (KVM did not start)"
    try:  # the probe's disk holds no file system: its init says so once it runs
        machine.expect(15, "the probe boot", lambda line: line.startswith("ERR mount"))
        return ["-accel", "kvm", "-cpu", "max"], "KVM"
    except Failure:
        return ["-accel", "tcg"], "TCG (a KVM probe boot did not reach its init in 15 s)"
    finally:
        machine.close()


def make_image(fs, path):
    with open(path, "wb") as f:
        f.truncate(IMAGE_BYTES)
    command = [tool("mkfs.f2fs"), "-q", "-f", path] if fs == "f2fs" else \
        [tool("mkfs.ext4"), "-q", "-F", "-b", str(BLOCK), path]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    with open(path, "rb") as f:
        return f.read()


MODELS = {"a": "the guest dies at once: page cache lost, every write the disk accepted kept",
          "b": "the disk's volatile cache is lost too: unflushed writes dropped, all or a prefix"}


def run_cuts(fs, model, cuts, seed, setup, accel, control):
    work = os.path.join(setup["work"], "%s-%s" % (fs, model))
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    disk = Disk(make_image(fs, os.path.join(work, "image")))
    server = NbdServer(os.path.join(work, "nbd.sock"), disk)
    machine = Machine(work, setup["kernel"], setup["initramfs"], fs, accel)
    disk.on_cut = machine.cut_lines
    rng = random.Random("%d-%s-%s" % (seed, fs, model))
    figures = {"cuts": 0, "torn": 0, "lost": 0, "committed": 0, "under_way_in": 0,
               "under_way_out": 0, "kept": 0, "dropped": 0}
    start = time.monotonic()
    session, root_seed = None, 0
    try:
        for cut in range(cuts + 1):
            machine.expect(BOOT_SECONDS, "boot %d" % cut, lambda line: line == "READY")
            if session is not None:
                machine.send("SEED %d" % root_seed)
                machine.expect(ANSWER_SECONDS, "seed", lambda line: line == "OK SEED")
                machine.send("RECOVER")
                machine.expect(ANSWER_SECONDS, "recovery", lambda line: line == "OK RECOVER")
                machine.send("CHECK " + session.tokens())
                answers = machine.expect(ANSWER_SECONDS, "the check",
                                         lambda line: line.startswith("OK CHECK"))
                for line in answers:
                    if line.startswith(("TORN", "JOURNAL")):
                        figures["torn"] += 1
                        print("  %s/%s cut %d: %s (expected %s)"
                              % (fs, model, cut, line, session.tokens()), flush=True)
                    elif line.startswith("LOST"):
                        figures["lost"] += 1
                        print("  %s/%s cut %d: %s (expected %s)"
                              % (fs, model, cut, line, session.tokens()), flush=True)
                    elif line.startswith("HOLDS"):
                        print("  %s/%s cut %d: %s" % (fs, model, cut, line), flush=True)
                    elif line.startswith("HAS ") and session.under_way \
                            and line.split()[1] == session.under_way[1]:
                        held = int(line.split()[2])
                        went_in = held > len(session.committed[session.under_way[1]])
                        figures["under_way_in" if went_in else "under_way_out"] += 1
                figures["committed"] += sum(len(ops) for ops in session.committed.values())
            if cut == cuts:
                break
            root_seed = rng.randrange(1 << 31)
            machine.send("MAKE %d" % root_seed)
            machine.expect(ANSWER_SECONDS, "a fresh camera root", lambda line: line == "OK MAKE")
            session = Session()
            machine.send("%s %d 1" % ("CONTROL" if control else "WORK", rng.randrange(1 << 31)))
            # The power fails as the disk takes a seeded one of the writes that follow the start
            # of a seeded operation: dumps and batch runs are cut in proportion to how often they
            # run, not to how long they take under emulation. The disk first (stopping the machine
            # would flush it), then the machine, whose reset loses its memory.
            target, writes = rng.randint(1, 5), rng.randint(1, 24)
            deadline = time.monotonic() + ANSWER_SECONDS
            while time.monotonic() < deadline and disk.outcome is None:
                try:
                    line = machine.lines.get(timeout=0.05)
                except queue.Empty:
                    continue
                if line is None:
                    raise Failure("the guest stopped; the console said:\n%s"
                                  % "\n".join(machine.console))
                session.take(line)
                if line.startswith("BEGIN %d " % target):
                    disk.arm(writes, model, rng)
            kept, dropped = disk.cut(model, rng)
            if os.environ.get("IQA_POWERCUT_TRACE"):
                print("  cut %d: under way %s" % (cut, session.under_way), flush=True)
            machine.monitor("system_reset")
            machine.wait_event("RESET")
            machine.reset_lines()
            disk.power_on()
            for line in machine.drain(0.2):
                if line == "READY":
                    raise Failure("the guest was up again before its old lines were read")
                session.take(line)
            figures["kept"] += kept
            figures["dropped"] += dropped
            figures["cuts"] += 1
    finally:
        machine.close()
        server.listener.close()
    figures["seconds"] = time.monotonic() - start
    figures["writes"], figures["flushes"] = disk.writes, disk.flushes
    return figures


def report(fs, model, f):
    """Prints a configuration's figures; returns how many photos failed their check."""
    print("powercut %s model %s (%s): %d cuts, %d torn, %d lost thumbnails; %d dumps "
          "committed, under way at the cut %d went in and %d did not; unflushed writes "
          "kept %d, dropped %d (of %d writes, %d flushes); %.0f s"
          % (fs, model, MODELS[model], f["cuts"], f["torn"], f["lost"], f["committed"],
             f["under_way_in"], f["under_way_out"], f["kept"], f["dropped"],
             f["writes"], f["flushes"], f["seconds"]), flush=True)
    return f["torn"] + f["lost"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--fs", choices=["f2fs", "ext4", "all"], default="all")
    parser.add_argument("--model", choices=["a", "b", "all"], default="all")
    parser.add_argument("--cuts", type=int, default=200)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--control", action="store_true",
                        help="photos rewritten in place with no journal: expect torn photos")
    parser.add_argument("--kernel-root", required=True)
    parser.add_argument("--driver", required=True)
    parser.add_argument("--iqa", required=True)
    parser.add_argument("--work", required=True)
    options = parser.parse_args()
    releases = os.listdir(os.path.join(options.kernel_root, "lib/modules"))
    if len(releases) != 1:
        raise Failure("expected one kernel under %s" % options.kernel_root)
    release = releases[0]
    os.makedirs(options.work, exist_ok=True)
    initramfs = os.path.join(options.work, "initramfs.cpio")
    build_initramfs(options.kernel_root, release, options.driver, options.iqa, initramfs)
    kernel = unpacked_kernel(os.path.join(options.kernel_root, "boot", "vmlinuz-" + release),
                             os.path.join(options.work, "vmlinux"))
    setup = {"work": options.work, "initramfs": initramfs, "kernel": kernel}
    accel, accel_text = probe_accelerator(setup["kernel"], initramfs, options.work)
    print("kernel %s, %s, seed %d, %d cuts per file system and model"
          % (release, accel_text, options.seed, options.cuts), flush=True)
    configs = [(fs, model) for fs in (["f2fs", "ext4"] if options.fs == "all" else [options.fs])
               for model in (["a", "b"] if options.model == "all" else [options.model])]
    # Each configuration has its own disk, server and qemu process; emulation keeps a core busy
    # per machine, so they run side by side up to the number of cores.
    with concurrent.futures.ThreadPoolExecutor(max_workers=options.jobs) as pool:
        runs = {pool.submit(run_cuts, fs, model, options.cuts, options.seed, setup, accel,
                            options.control):
                (fs, model) for fs, model in configs}
        bad = sum(report(*runs[run], run.result())
                  for run in concurrent.futures.as_completed(runs))
    return 1 if bad else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except Failure as failure:
        print("powercut: " + str(failure), file=sys.stderr)
        sys.exit(1)
