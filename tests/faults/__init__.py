"""Drives that fail, and processes that are killed."""
