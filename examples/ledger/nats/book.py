"""What the hosts have left in the book's files, each line "HOST NUMBER LAST BALANCE"."""

from programs import Failure


def check_account(file, last, alive_hosts):
    """Checks one account's file; returns how many of its postings ran once more, and how many hosts
    had a turn. The hosts' own sums are not trusted."""
    seen = balance = previous = turns = repeated = 0
    host = None
    for line in file.read_text().splitlines():
        now, number, claimed_last, claimed_balance = map(int, line.split())
        where = f"{file.name}, posting {number}"
        if now not in alive_hosts:
            raise Failure(f"{where}: no host of ours has run it")
        if number > seen + 1:
            raise Failure(f"{where}: {seen + 1} was lost or overtaken")
        # A host that takes over runs again what has not been acknowledged, and leaves out what has.
        if now == host and number <= previous:
            raise Failure(f"{where}: the same host had run {previous} before it")
        turns += now != host
        if number <= seen:
            repeated += 1
        else:
            seen, balance = number, balance + number
        if (claimed_last, claimed_balance) != (seen, balance):
            raise Failure(f"{where}: the balance is {claimed_balance}, not {balance}")
        host, previous = now, number
    if seen != last:
        raise Failure(f"{file.name}: {seen} postings instead of {last}")
    return repeated, turns
