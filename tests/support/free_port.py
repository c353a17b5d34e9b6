"""Ports for servers that have to be told theirs before they start."""

import random
import socket

# Below those that a system gives to whoever asks for any: between the choice and the server's start
# nobody takes one by chance.
LOWEST, HIGHEST = 10_240, 32_000


def free_port():
    while True:
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", random.SystemRandom().randint(LOWEST, HIGHEST)))
                return probe.getsockname()[1]
            except OSError:
                pass
