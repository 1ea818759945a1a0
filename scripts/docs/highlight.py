"""Coloured code."""
import html

import pygments
import pygments.formatters
import pygments.lexers

FORMATTER = pygments.formatters.HtmlFormatter(nowrap=True)
LANGUAGES = {"h": "cpp", "cpp": "cpp", "md": "text", "txt": "text", "cmake": "cmake", "sh": "bash", "": "text"}


def text(code, language):
    if language == "text":
        return html.escape(code)
    return pygments.highlight(code, pygments.lexers.get_lexer_by_name(language, stripnl=False), FORMATTER).rstrip("\n")


def block(code, language="text", css=""):
    return f'<pre class="code {css}" tabindex="0"><code>{text(code, language)}</code></pre>'
