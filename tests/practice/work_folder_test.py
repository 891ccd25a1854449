"""A practice run deletes what an earlier one made, and nothing of anybody else's."""

import pathlib
import tempfile

from practice.stage.work_folder import MARK, make_work_folder


def make_file(path, text="precious"):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return path


def check_own_folder(base):
    folder = make_work_folder(base / "run")
    assert folder == base / "run" and folder.is_dir()
    outside = make_file(base / "outside" / "file")
    make_file(folder / "image")
    make_file(folder / "old-files" / "deep" / "record")
    (folder / "link").symlink_to(outside)
    (folder / "link-to-folder").symlink_to(outside.parent)
    (folder / "old-files" / "link-to-folder").symlink_to(outside.parent)
    assert make_work_folder(base / "run") == folder
    assert [path.name for path in folder.iterdir()] == [MARK]
    assert outside.read_text() == "precious"


def check_left_alone(base, name, precious):
    """What has the name stays, and the run gets another folder, then that one again."""
    other = base / f"{name}-2"
    for _ in range(2):
        folder = make_work_folder(base / name)
        assert folder == other, (name, folder)
        assert precious.read_text() == "precious", name
        make_file(folder / "image")


def check_others_folders(base):
    check_left_alone(base, "folder", make_file(base / "folder" / "file"))
    check_left_alone(base, "file", make_file(base / "file"))

    precious = make_file(base / "mark-is-a-link" / "file")
    (base / "mark-is-a-link" / MARK).symlink_to(precious)
    check_left_alone(base, "mark-is-a-link", precious)
    precious = make_file(base / "mark-is-a-folder" / MARK / "file")
    check_left_alone(base, "mark-is-a-folder", precious)

    precious = make_file(make_work_folder(base / "own") / "file")
    (base / "link").symlink_to(base / "own")
    check_left_alone(base, "link", precious)
    (base / "broken-link").symlink_to(base / "nothing")
    check_left_alone(base, "broken-link", precious)
    assert not (base / "nothing").exists()


with tempfile.TemporaryDirectory() as name:
    check_own_folder(pathlib.Path(name))
    check_others_folders(pathlib.Path(name))
