"""Waiting between attempts to synchronise."""


class SyncBackoffCancelled(Exception):
    """The user gave up while a synchronisation was waiting for its next attempt; never to be reported as a failure."""
