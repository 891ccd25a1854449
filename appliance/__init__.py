"""The boot medium: how it is made, started in an emulator and measured."""
