"""The main job on image files, for practice: `python3 -m practice`."""
