"""What processes use, from the kernel: for the benchmarks that compare programs."""

import os


def family_of(leader):
    """The process and all that descend from it."""
    parents = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                with open(f"/proc/{entry}/stat", encoding="utf-8", errors="replace") as file:
                    parents[int(entry)] = int(file.read().rpartition(")")[2].split()[1])
            except OSError:
                pass
    family = {leader}
    while more := {child for child, parent in parents.items() if parent in family} - family:
        family |= more
    return family


def name_of(process):
    with open(f"/proc/{process}/comm", encoding="utf-8") as file:
        return file.read().strip()


def processor_time(process):
    """Milliseconds that the process's threads have used."""
    nanoseconds = 0
    for thread in os.listdir(f"/proc/{process}/task"):
        with open(f"/proc/{process}/task/{thread}/schedstat", encoding="utf-8") as file:
            nanoseconds += int(file.read().split()[0])
    return nanoseconds / 1e6


def memory(process):
    """KiB, of what processes share a part each (PSS)."""
    with open(f"/proc/{process}/smaps_rollup", encoding="utf-8") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:"))


def sum_over(leader, figure):
    """Of the family; what ends meanwhile is not among it."""
    total = 0
    for process in family_of(leader):
        try:
            total += figure(process)
        except (OSError, StopIteration):
            pass
    return total
