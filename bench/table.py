"""The table of a run, as text and as Markdown."""

TITLES = ("figure", "value", "limit", "what the limit is", "ratio", "goal", "met?")
NUMERIC = (1, 2, 4, 5)  # columns, aligned to the right
MET = {True: "yes", False: "NO", None: ""}


def rows(figures, judged):
    """The cells of the table, of the records of a run's file. A quick run is not `judged`."""
    for figure in figures:
        unit = figure["unit"]
        yield (figure["figure"],
               quantity(figure["value"], unit, figure["valueSpread"]),
               quantity(figure["limit"], unit, figure["limitSpread"]),
               figure["limitIs"],
               "" if figure["ratio"] is None else f"{figure['ratio']:.3f}",
               goal(figure["goal"]),
               MET[figure["met"]] if judged else "")


def quantity(number, unit, spread):
    """With its spread if it has one, such as "12.3 ms ±4 %"; nothing of None."""
    if number is None:
        return ""
    text = f"{rounded(number)} {unit}".rstrip()
    return text if spread is None else f"{text} ±{spread * 100:.0f} %"


def rounded(number):
    """Three digits, or all before the point."""
    size = abs(number)
    decimals = 0 if size >= 100 else 1 if size >= 10 else 2 if size >= 0.1 or size == 0 else 4
    return f"{number:,.{decimals}f}"


def goal(record):
    return f"{'≥' if record['at_least'] else '≤'} {record['bound']:g}" if record else ""


def as_text(figures, judged):
    table = [TITLES, *rows(figures, judged)]
    widths = [max(map(len, column)) for column in zip(*table)]
    return "\n".join(
        "  ".join(cell.rjust(width) if column in NUMERIC else cell.ljust(width)
                  for column, (cell, width) in enumerate(zip(row, widths))).rstrip()
        for row in table)


def as_markdown(figures, judged):
    marks = ["---:" if column in NUMERIC else "---" for column in range(len(TITLES))]
    return markdown([TITLES, marks, *rows(figures, judged)])


def markdown(table):
    return "\n".join(f"| {' | '.join(row)} |" for row in table)
