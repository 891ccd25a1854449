"""The built program as a whole."""
