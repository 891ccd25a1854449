"""The medium in an emulated computer, from power-on to the erased drives."""
