"""Programs that play the module's host on repositories of Python code."""
