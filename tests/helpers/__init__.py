"""The built helpers on files."""
