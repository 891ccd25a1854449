#!/usr/bin/env python3
"""refused_requests.py DRIVER: erases a loop device over a file whose file system answers EOPNOTSUPP
to what is written to one sector, once or always. Always makes the kernel's io_uring ask again for ever,
which the driver waits for for a minute. Ends with 77 where nobody may mount (needs root)."""

import ctypes
import errno
import os
import pathlib
import struct
import subprocess
import sys
import tempfile
import threading

DRIVER = sys.argv[1]
SECTOR, SECTORS = 512, 32768
REFUSED = SECTORS // 2
# include/uapi/linux/fuse.h
GETATTR, OPEN, READ, WRITE, RELEASE, FSYNC, FLUSH, INIT = 3, 14, 15, 16, 18, 20, 25, 26
ASYNC_READ, BIG_WRITES = 1 << 0, 1 << 5
ATTRIBUTES = struct.pack("<QII 6Q 10I", 1000, 0, 0, 1, SECTORS * SECTOR, SECTORS, 0, 0, 0,
                         0, 0, 0, 0o100600, 1, 0, 0, 0, SECTOR, 0)


class RefusingFile:
    """The file `path`, in memory, as long as it is mounted."""

    def __init__(self, path, times):
        self.content = bytearray(b"old." * (SECTORS * SECTOR // 4))
        self.refusals = times
        self._fuse = os.open("/dev/fuse", os.O_RDWR)
        options = f"fd={self._fuse},rootmode=100000,user_id=0,group_id=0"
        mount = ctypes.CDLL(None, use_errno=True).mount
        if mount(b"refusing", os.fsencode(path), b"fuse", 0, options.encode()) != 0:
            raise OSError(ctypes.get_errno(), "mount")
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        try:
            while request := os.read(self._fuse, 1 << 21):
                _, operation, number = struct.unpack_from("<IIQ", request)
                error, answer = self._answer(operation, request[40:])
                os.write(self._fuse, struct.pack("<IiQ", 16 + len(answer), -error, number) + answer)
        except OSError:
            pass  # unmounted

    def _answer(self, operation, body):
        if operation == INIT:
            return 0, struct.pack("<4I 2H 2I 10I", 7, 31, 1 << 17, ASYNC_READ | BIG_WRITES,
                                  64, 32, 1 << 17, 1, *(0,) * 10)[:64]
        if operation == GETATTR:
            return 0, ATTRIBUTES
        if operation == OPEN:
            return 0, bytes(16)
        if operation in (RELEASE, FSYNC, FLUSH):
            return 0, b""
        if operation not in (READ, WRITE):
            return errno.ENOSYS, b""
        _, offset, length = struct.unpack_from("<QQI", body)
        if operation == READ:
            return 0, bytes(self.content[offset:offset + length])
        if self.refusals and offset <= REFUSED * SECTOR < offset + length:
            self.refusals -= 1
            return errno.EOPNOTSUPP, b""
        self.content[offset:offset + length] = body[40:40 + length]
        return 0, struct.pack("<II", length, 0)


def erase(path, times):
    """The driver's exit code and output, and the sectors that do not hold the pattern."""
    file = RefusingFile(path, times)
    device = ""
    try:
        device = subprocess.run(["losetup", "--find", "--show", "--direct-io=on", path],
                                check=True, stdout=subprocess.PIPE, text=True).stdout.strip()
        done = subprocess.run([DRIVER, f"device={device}", "mode=write", "pattern=A",
                               "sectorsPerTime=256"], stdout=subprocess.PIPE, text=True,
                              stderr=subprocess.STDOUT, timeout=110)
        output = done.stdout.replace(device, "DEVICE")
    finally:
        if device:
            subprocess.run(["losetup", "--detach", device], check=True)
        subprocess.run(["umount", "--lazy", path], check=True)
    wrong = [sector for sector in range(SECTORS)
             if file.content[sector * SECTOR:(sector + 1) * SECTOR] != b"A" * SECTOR]
    return done.returncode, output, wrong


def main():
    if os.geteuid() != 0 or not os.access("/dev/loop-control", os.W_OK):
        sys.exit(77)
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "file"
        path.touch()
        try:
            once = erase(path, 1)
        except (OSError, subprocess.CalledProcessError) as error:
            print("skipped:", error)
            sys.exit(77)
        assert once[0] == 0 and once[2] == [], once
        code, output, wrong = erase(path, 1 << 60)
        assert code == 1 and wrong == [REFUSED], (code, output, wrong)
        assert "DEVICE: io_uring stands still; going on with plain calls\n" in output, output
        assert (f"error: 1 sectors could not be written, first at sector {REFUSED} of DEVICE: "
                in output), output


if __name__ == "__main__":
    main()
