"""Measures the programs beside others and puts tables into docs/speed.md; see scripts/bench."""

import argparse
import collections
import contextlib
import datetime
import functools
import json
import os
import pathlib
import re
import resource
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from practice.stage.private_system import PrivateSystem
from practice.stage.processes import Processes, wait_until
from tests.faults.watched_run import clear, show_as_file

ROOT = pathlib.Path(__file__).resolve().parent.parent
BINARIES = ROOT / "build/release/bin"

# As long as a machine word: a device that compresses has the same work with it as with the
# zeros of dd and shred.
PATTERN = "VANTRELL"
PSYNC = [f"--ioengine=psync --bs={block}" for block in ("128k", "512k", "1m")]
URING = [f"--ioengine=io_uring --fixedbufs --registerfiles --bs={block} --iodepth={depth}"
         for block in ("128k", "512k", "1m") for depth in (1, 8, 32)]
DD_WRITE = "dd status=none if=/dev/zero of={path} iflag=count_bytes conv=notrunc"
DD_READ = "dd status=none if={path} of=/dev/null"
DD_DIRECT = "dd bs=128k oflag=direct"
DRIVER_BACK = "driver, reading back"
# Those that go through the page cache are slow and get a part.
OTHERS = {
    "write": {"dd bs=1M conv=fsync": DD_WRITE + ",fsync bs=1M count={part}",
              "shred -n0 -z": "shred -n0 -z -x {path}",
              DD_DIRECT: DD_WRITE + " bs=128k oflag=direct count={size}"},
    "read": {"dd bs=1M": DD_READ + " iflag=count_bytes bs=1M count={part}",
             "dd bs=128k iflag=direct": DD_READ + " bs=128k iflag=direct"},
}
# The processor time is that of all threads, the kernel's own for io_uring included.
Run = collections.namedtuple("Run", "seconds processor mib output stamps")


def run(command, **environment):
    """Runs it; the stamps are the times at which its lines came."""
    with tempfile.NamedTemporaryFile("r") as peak:
        # Started from here its peak would be at least this interpreter's: exec keeps that.
        timed = ["time", "--quiet", "--format=%M", f"--output={peak.name}", *map(str, command)]
        start, before = time.monotonic(), resource.getrusage(resource.RUSAGE_CHILDREN)
        with subprocess.Popen(timed, stdout=subprocess.PIPE, text=True,
                              env={**os.environ, **environment}) as process:
            lines = [(line, time.monotonic()) for line in process.stdout]
        if process.returncode != 0:
            raise subprocess.CalledProcessError(process.returncode, timed)
        output = "".join(line for line, _ in lines)
        stamps = {line.strip(): stamp for line, stamp in lines}
        seconds, after = time.monotonic() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
        processor = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        return Run(seconds, processor, int(peak.read()) / 1024, output, stamps)


def run_fio(engine, mode, paths):
    """One job a path. Its start, which takes half a second, is left out."""
    command = (f"fio --rw={mode} --direct=1 --end_fsync=1 --thread --group_reporting "
               f'--gtod_reduce=1 --buffer_pattern="{PATTERN}" --output-format=json ').split()
    command += engine.split()
    jobs = [part for path in paths for part in (f"--name={path}", f"--filename={path}")]
    start = run([*command, "--number_ios=1", *jobs])
    done = run([*command, *jobs])
    job = json.loads(done.output)["jobs"][0]
    own = job["job_runtime"] / 1000 * (job["usr_cpu"] + job["sys_cpu"]) / 100  # less its workers
    processor = max(done.processor - start.processor, own)
    return Run(job[mode]["runtime"] / 1000, processor, done.mib, "", {})


def medians(runs):
    return [statistics.median(figures) for figures in zip(*runs)]


def wanted(value, limit, at_most=False):
    """A table's cell: a value, the limit if there is one, and whether it is kept."""
    is_met = limit and (value <= limit if at_most else value >= limit)
    sign, answer = "≤" if at_most else "≥", "yes" if is_met else "**no**"
    return f"{value:.2f} ({sign} {limit}: {answer})" if limit else f"{value:.2f}"


def publish(section, title, rows):
    """Prints a table, its head first, and puts it between the section's markers."""
    model = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    machine = (f"{model[1] if model else os.uname().machine}, {os.cpu_count()} cores, "
               f"Linux {os.uname().release}, {datetime.date.today()}")
    rows.insert(1, ["---"] * len(rows[0]))
    table = "".join(f"| {' | '.join(row)} |\n" for row in rows)
    print(text := f"**{title}** ({machine})\n\n{table}", flush=True)
    document = ROOT / "docs" / "speed.md"
    begin, end = f"<!-- {section}: begin -->\n", f"<!-- {section}: end -->"
    before, _, rest = document.read_text().partition(begin)
    document.write_text(before + begin + text + end + rest.partition(end)[2])


def run_driver(program, mode, path, size, part=(0, 99), verify="spot"):
    """The seconds are those of a part of its work, first and last percent, as if it were all."""
    done = run([program, f"device={path}", f"mode={mode}", f"pattern={PATTERN}",
                "sectorsPerTime=256"], VANTRELLE_VERIFY=verify)
    with open(path, "rb") as file:
        for offset in (0, size // 1024 * 512, size - 512) if mode == "write" else ():
            if os.pread(file.fileno(), 512, offset) != (PATTERN * 64).encode():
                raise RuntimeError(f"the driver did not write the sector at {offset}")
    first, last = part
    seconds = done.stamps[f"progress: {last}"] - done.stamps[f"progress: {first}"]
    return done._replace(seconds=seconds / (last - first) * (50 if verify == "full" else 100))


def run_driver_back(program, path, size):
    """The seconds in which it reads back and compares all that it has written."""
    return run_driver(program, "write", path, size, (50, 99), "full")


def driver_rows(middle, best, limits):
    """What was taken for one GB; `limits` are those of the driver's speed by program."""
    ours = middle["driver"]
    yield ["program", "s/GB", "GB/s", "processor s/GB", "peak MiB", "speed of `driver` to its",
           "processor time of `driver` to its"]
    for name, (seconds, processor, mib) in middle.items():
        yield [name, f"{seconds:.3f}", f"{1 / seconds:.2f}", f"{processor:.3f}",
               wanted(mib, 16 if name == "driver" else None, at_most=True),
               wanted(seconds / ours[0], limits.get(name)),
               wanted(ours[1] / processor, 1.1 if name == best else None, at_most=True)]


def compare_driver(arguments):
    path, mode = arguments.path, arguments.mode
    if not path.is_file() and not re.fullmatch(r"/dev/(loop|zram)\d+", str(path)):
        sys.exit(f"bench: {path}: neither a file nor a loop or zram device")
    size = os.stat(path).st_size or path.open("rb").seek(0, os.SEEK_END)
    sizes = {"path": path, "size": size, "part": min(size, 1 << 30)}
    others = {name: [part.format(**sizes) for part in command.split()]
              for name, command in OTHERS[mode].items()}
    run(others.get(DD_DIRECT, ["true"]))  # makes room, and zeros for `driver` to replace
    engines = [min(choices, key=lambda engine: run_fio(engine, mode, [path]).seconds)
               for choices in (PSYNC, URING)]
    fio = {re.sub("--(fixedbufs|registerfiles) |--", "", f"fio {engine}"):
           functools.partial(run_fio, engine, mode, [path]) for engine in engines}
    back = {DRIVER_BACK: functools.partial(run_driver_back, arguments.driver, path, size)}
    programs = {"driver": functools.partial(run_driver, arguments.driver, mode, path, size),
                **(back if mode == "read" else {}), **fio,
                **{name: functools.partial(run, command) for name, command in others.items()}}
    runs = [[program()[:3] for program in programs.values()] for _ in range(arguments.runs)]
    middle = {}
    for name, (seconds, processor, mib) in zip(programs, map(medians, zip(*runs))):
        gigabytes = sizes["part" if "{part}" in OTHERS[mode].get(name, "") else "size"] / 1e9
        middle[name] = seconds / gigabytes, processor / gigabytes, mib
    best = min(fio, key=lambda name: middle[name][0])
    limits = {best: 0.95, **({DD_DIRECT: 4} if "loop" in path.name else {})}
    publish(f"{arguments.what.split()[0]} {mode}",
            f"{mode}, {size / (1 << 30):g} GiB, {arguments.what}",
            list(driver_rows(middle, best, limits)))


def show_paced(processes, image, seconds):
    """The image as the file of a drive that is overwritten in so many seconds at best."""
    bits_per_second = image.stat().st_size * 8 // seconds
    drive = image.with_suffix(".drive")
    show_as_file(processes, drive, ["--filter=rate", "file", image, f"rate={bits_per_second}"])
    return drive


def measure_many(targets, engines, runs):
    """Medians of fio's best time and of what many_drives prints, with its peak memory."""
    theirs, ours = [], []
    for _ in range(runs):
        theirs.append([run_fio(engine, "write", targets).seconds for engine in engines])
        done = run([BINARIES / "many_drives", *targets])
        ours.append([*map(float, done.output.split()), done.mib])
    return min(medians(theirs)), medians(ours)


def compare_many(arguments):
    rows = [["drives", "GB/s", "fio GB/s", "ratio", "starting them ms", "longest gap ms",
             "longest gap while they end ms", "share of a core %", "peak MiB"]]
    for count in arguments.drives:
        size = int(arguments.gib * 1024) // count << 20
        directory = pathlib.Path(tempfile.mkdtemp(dir=arguments.directory, prefix="bench-"))
        targets = [directory / str(number) for number in range(count)]
        with contextlib.ExitStack() as stack:
            stack.callback(clear, directory)
            processes = stack.enter_context(Processes())
            for image in targets:
                with image.open("wb") as file:
                    os.posix_fallocate(file.fileno(), 0, size)
            engines = URING[1], URING[7]
            run_fio(engines[1], "write", targets)  # makes room
            if arguments.seconds:  # for any engine
                engines = engines[:1]
                targets = [show_paced(processes, image, arguments.seconds) for image in targets]
            best, ours = measure_many(targets, engines, arguments.runs)
        seconds, start, gap, end, share, mib = ours
        rows.append([str(count), f"{size * count / seconds / 1e9:.2f}",
                     f"{size * count / best / 1e9:.2f}", wanted(best / seconds, 0.9),
                     f"{start:.0f}", wanted(gap, 50, at_most=True), f"{end:.0f}",
                     wanted(share, 5 if arguments.seconds else None, at_most=True), f"{mib:.1f}"])
    pace = f", slow drives of {arguments.seconds} seconds" if arguments.seconds else ""
    publish("slow" if arguments.seconds else "many",
            f"{arguments.gib:g} GiB in all, on image files{pace}", rows)


def measure_start(start, screen):
    """Milliseconds from exec to the first pixel of the last line that is not black."""
    def is_painted():
        return any(os.pread(screen.fileno(), 4096, os.fstat(screen.fileno()).st_size - 4096))

    process = start()
    begin = time.monotonic()
    while not is_painted() and time.monotonic() < begin + 10:
        time.sleep(0.0005)
    taken = time.monotonic() - begin
    process.terminate()
    if process.wait() != -signal.SIGTERM or taken > 10:
        raise RuntimeError(f"{process.args[0]} shows nothing")
    wait_until(lambda: not is_painted(), 10, "the screen is not black again")
    return taken * 1000


def compare_start(arguments):
    with tempfile.TemporaryDirectory() as name, Processes() as processes:
        directory = pathlib.Path(name)
        # Without -noreset the screen would start anew after each program, into the next one's time.
        display = processes.start_virtual_screen("1024x768", None, "-fbdir", name, "-noreset")
        system = PrivateSystem(processes, BINARIES, directory, display, "1024x768")
        images = [directory / str(number) for number in range(3)]
        for image in images:
            image.write_bytes(bytes(1 << 20))
        system.start_disk_service({image: "model=Bench" for image in images})
        environment = {"DISPLAY": display, "QT_QPA_PLATFORM": "xcb"}
        starts = (system.start_program,
                  lambda: processes.start([BINARIES / "empty_window"], environment))
        with open(directory / "Xvfb_screen0", "rb") as screen:
            runs = [[measure_start(start, screen) for start in starts]
                    for _ in range(arguments.runs + 1)][1:]  # the first reads from the disk
    ours, theirs = medians(runs)
    publish("start", f"medians of {arguments.runs}, three drives",
            [["program", "ms", "ratio"],
             ["vantrelleplus", f"{ours:.0f}", wanted(ours / theirs, 1.3, at_most=True)],
             ["empty window", f"{theirs:.0f}", ""]])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parts = parser.add_subparsers(required=True)
    driver = parts.add_parser("driver", help="`driver` beside fio, dd and shred on one target")
    driver.set_defaults(run=compare_driver, runs=5)
    driver.add_argument("--driver", default=BINARIES / "lib/driver", type=pathlib.Path)
    driver.add_argument("what", help="what is overwritten, for the table")
    driver.add_argument("path", type=pathlib.Path, help="it is OVERWRITTEN")
    driver.add_argument("mode", choices=OTHERS)
    many = parts.add_parser("many", help="drives erased side by side, beside fio")
    many.set_defaults(run=compare_many, runs=5)
    many.add_argument("--directory", default=ROOT / "build", help="for the images")
    many.add_argument("--gib", default=12, type=float, help="size of all drives together")
    many.add_argument("--seconds", type=int, help="that each drive takes at best, by nbdkit")
    many.add_argument("--drives", nargs="+", default=[1, 4, 16, 64], type=int)
    start = parts.add_parser("start", help="the first window, beside an empty program")
    start.set_defaults(run=compare_start, runs=31)
    for part in (driver, many, start):
        part.add_argument("--runs", type=int)
    arguments = parser.parse_args()
    arguments.run(arguments)


if __name__ == "__main__":
    main()
