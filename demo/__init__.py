"""The demonstration: chapters of steps that show what they do and check it."""
