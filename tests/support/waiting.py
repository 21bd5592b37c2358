"""For what other processes do at some time."""

import time


def until(condition, what, seconds=60):
    """What the condition gives, as soon as it is true; `what`, a text or what makes one, says what has not come."""
    end = time.monotonic() + seconds
    while not (got := condition()):
        if time.monotonic() > end:
            raise AssertionError(f'not within {seconds} s: {what() if callable(what) else what}')
        time.sleep(0.02)
    return got
