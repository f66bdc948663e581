"""Heads whose QA figures stand out from the batch: a modified z-score
(0.6745 (x - median) / MAD, with MAD the median absolute deviation) above
3.5 on any figure. When more than half the heads share one value the MAD is
0; the score then uses the mean absolute deviation instead,
(x - median) / (1.253314 mean|x - median|), so one odd head among equal ones
still stands out."""
import statistics

THRESHOLD = 3.5


def modified_z_scores(values):
    """The modified z-score of each value; all zero when every value is the
    same."""
    if not values:
        return []
    median = statistics.median(values)
    mad = statistics.median(abs(v - median) for v in values)
    if mad > 0:
        return [0.6745 * (v - median) / mad for v in values]
    mean_deviation = statistics.fmean(abs(v - median) for v in values)
    if mean_deviation == 0:
        return [0.0] * len(values)
    return [(v - median) / (1.253314 * mean_deviation) for v in values]


def flatten(qa, prefix=""):
    """The numeric figures of a QA record as {dotted name: value}: nested
    records by key ("a.b"), lists by index ("a[0]")."""
    figures = {}

    def walk(name, value):
        if isinstance(value, dict):
            for key, item in value.items():
                walk(f"{name}.{key}" if name else str(key), item)
        elif isinstance(value, (list, tuple)):
            for index, item in enumerate(value):
                walk(f"{name}[{index}]", item)
        elif isinstance(value, (int, float)) and not isinstance(value, bool):
            figures[name] = float(value)

    walk(prefix, qa)
    return figures


def find_outliers(rows, threshold=THRESHOLD):
    """[(input, figure, value, score)] for the rows whose figure's modified
    z-score exceeds `threshold` in size, the largest score per head first."""
    per_row = [(row["input"], flatten(row.get("qa") or {})) for row in rows]
    names = sorted({name for _, figures in per_row for name in figures})
    flagged = {}
    for name in names:
        present = [(source, figures[name]) for source, figures in per_row if name in figures]
        scores = modified_z_scores([value for _, value in present])
        for (source, value), score in zip(present, scores):
            if abs(score) > threshold and abs(score) > abs(flagged.get(source, (0, 0, 0))[2]):
                flagged[source] = (name, value, score)
    return sorted(((source, *entry) for source, entry in flagged.items()),
                  key=lambda item: -abs(item[3]))
