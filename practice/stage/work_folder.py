"""A folder for what a run makes: a new one, or that of an earlier run, which its mark tells. A
folder or a link that somebody else made is left alone."""

import itertools
import os
import shutil
import stat

MARK = ".made-by-vantrelleplus"


def make_work_folder(path):
    """Makes the folder, or empties it when an earlier run made it. When something else has the
    name, a number is added to it. Returns the folder's path."""
    for number in itertools.count(1):
        folder = path if number == 1 else path.with_name(f"{path.name}-{number}")
        try:
            folder.mkdir()
        except FileExistsError:
            if not empty_own_folder(folder):
                continue
        (folder / MARK).write_text("What lies here is removed by the next run.\n")
        return folder


def empty_own_folder(path):
    """Whether it is a folder with the mark, whose other contents are gone then. No link is
    followed: neither the folder itself, nor the mark, nor one inside."""
    try:
        folder = os.open(path, os.O_RDONLY | os.O_DIRECTORY | os.O_NOFOLLOW)
    except OSError:
        return False
    try:
        if not has_mark(folder):
            return False
        for name in os.listdir(folder):
            if name != MARK:
                remove(name, folder)
        return True
    finally:
        os.close(folder)


def has_mark(folder):
    try:
        return stat.S_ISREG(os.stat(MARK, dir_fd=folder, follow_symlinks=False).st_mode)
    except FileNotFoundError:
        return False


def remove(name, folder):
    if stat.S_ISDIR(os.stat(name, dir_fd=folder, follow_symlinks=False).st_mode):
        shutil.rmtree(name, dir_fd=folder)
    else:
        os.unlink(name, dir_fd=folder)
