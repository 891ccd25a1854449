"""Formatted drives are booted in an emulator."""
