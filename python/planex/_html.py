"""Tables for notebooks."""

from __future__ import annotations

import html


def table(title: str, rows: dict[str, object]) -> str:
    """Two columns under a title; every text is escaped."""
    lines = [
        f"<tr><th>{html.escape(name)}</th><td>{html.escape(str(value))}</td></tr>"
        for name, value in rows.items()
    ]
    return f"<table><caption>{html.escape(title)}</caption>{''.join(lines)}</table>"
