"""What is said of the image files after the run."""

import hashlib
import subprocess

from practice.stage import erased_drive


def checksum(path):
    digest = hashlib.sha256()
    with path.open("rb") as file:
        while chunk := file.read(1 << 22):
            digest.update(chunk)
    return digest.hexdigest()


def report_erased(images, log):
    is_good = True
    for image in images:
        picture = log.picture(image)
        if picture is None:
            wrong, facts = ["it was not formatted"], []
        else:
            try:
                wrong, facts = erased_drive.check(image, picture)
            except (ValueError, OSError, subprocess.CalledProcessError) as error:
                wrong, facts = [str(error)], []
        print(f"{image.name}: {'NOT ERASED' if wrong else 'erased and formatted'}")
        for line in wrong + facts:
            print(f"  {line}")
        is_good = is_good and not wrong
    return is_good


def report_unchanged(images, before, log):
    was_run = log.text().count("mode=read") == len(images) and log.ended_jobs() == 2 * len(images)
    if not was_run:
        print("the emulated run did not end for every drive")
    for image in images:
        is_same = checksum(image) == before[image]
        print(f"{image.name}: {'no byte changed' if is_same else 'CHANGED'}")
        was_run = was_run and is_same
    return was_run
