"""Figures, measured side by side with what they are compared to."""
