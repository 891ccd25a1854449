"""What a run of the program on image files needs; the tests and benches use it, too."""
