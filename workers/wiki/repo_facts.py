"""Path normalisation and the file-cards heading of the host, in their smallest form."""

FILE_CARDS_HEADING = "## File cards"


def _norm(path: str) -> str:
    """Return a repository path in the form used everywhere; the empty path stays empty."""
    path = path.replace("\\", "/")
    while path.startswith("./"):
        path = path[2:]
    return path
