"""Programs that a test starts and that must succeed."""

import subprocess


def call(*command, **options):
    """The standard output of a command that must succeed."""
    command = [str(word) for word in command]
    result = subprocess.run(command, capture_output=True, text=True, **options)
    if result.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: exit status {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout
