"""The host's heading of the requested-context block, in its smallest form."""

REQUESTED_CONTEXT_HEADING = "## Requested context"
