# packaging/site/conf.py - how packaging/site.sh makes the documents a site: by whom each
# is read, and what stands above an example, whose kind is the word behind its fence.
from docutils import nodes
from pygments.lexer import DelegatingLexer, RegexLexer
from pygments.lexers import HtmlLexer, find_lexer_class_by_name
from pygments.token import Comment, Keyword, Name, Other, Text
from pygments.util import ClassNotFound
from sphinx.util import logging

logger = logging.getLogger(__name__)

# What words behind a fence, and endings of files, are as languages.
LANGUAGES = {"template": "orv", "htm": "orv", "frm": "orv", "page": "html"}

# Every document has its place here; one that has none is named, and there is no site.
navigation = {
    "Writing templates": ["preview", "templates", "security", "checking"],
    "Translating": ["translating", "textdb"],
    "Embedding the interpreter": ["site", "first-page", "hosts", "embedding", "reference", "reliability"],
    "Building devices": ["device", "performance"],
    "Changing the library": ["developing", "CHANGES"],
}

project = "liborvinterpreter"
html_title = project
highlight_language = "text"
html_theme = "sphinx_rtd_theme"
html_show_sourcelink = False
html_static_path = ["static"]
html_css_files = ["site.css"]
html_copy_source = False
html_show_copyright = html_show_sphinx = False
html_show_search_summary = False  # it is fetched, which a page out of a file cannot do
extensions = ["myst_parser"]
myst_heading_anchors = 4
suppress_warnings = ["misc.highlighting_failure"]  # an example may be broken HTML


class CommandLexer(RegexLexer):
    """The commands of a template, and all else as HTML."""

    tokens = {
        "root": [
            (r"<\?--", Comment, "comment"),
            (r"(<\?)(\s*[a-z0-9]+)", Keyword, "command"),
            (r"\{\?[\w.:]+\?\}", Name.Constant),
            (r"[^<{]+|.", Other),
        ],
        "comment": [(r"<\?", Comment, "#push"), (r"\?>", Comment, "#pop"), (r"[^<?]+|.", Comment)],
        "command": [
            (r"<\?--", Comment, "comment"),
            (r"(<\?)(\s*[a-z0-9]+)", Keyword, "#push"),
            (r"\?>", Keyword, "#pop"),
            (r"\{\?[\w.:]+\?\}", Name.Constant),
            (r"\$?\bvar:\w+|\$var:\w+|\$[0-9a-z][0-9a-z]?", Name.Variable),
            (r"[^<?{$v]+|.|\n", Text),
        ],
    }


class TemplateLexer(DelegatingLexer):
    def __init__(self, **options):
        super().__init__(HtmlLexer, CommandLexer, **options)


def add_navigation(_app, name, source):
    """Puts the navigation behind the README, which is the first page."""
    if name != "index":
        return
    for reader, documents in navigation.items():
        paths = "\n".join(d if d.isupper() else f"docs/{d}" for d in documents)
        for path in paths.split():
            if f"({path}.md)" not in source[0] and path != "docs/reference":
                logger.warning("README.md has no link to %s.md", path)
        source[0] += f"\n```{{toctree}}\n:hidden:\n:caption: {reader}\n:maxdepth: 1\n\n{paths}\n```\n"


def is_language(kind):
    """Whether the word behind a fence is a language, and none of the tests' own words."""
    try:
        return bool(find_lexer_class_by_name(kind))
    except ClassNotFound:
        return kind in ("default", "none")


def add_labels(_app, doctree):
    """Tells a template from its page, and names the files of an example."""
    for block in list(doctree.findall(nodes.literal_block)):
        kind = block.get("language", "text")
        if is_language(kind):
            continue
        ending = kind.rpartition(".")[2]
        block["language"] = LANGUAGES.get(ending, ending if is_language(ending) else "text")
        label = nodes.paragraph("", kind if "." in kind else kind.capitalize(), classes=["label"])
        block.parent.insert(block.parent.index(block), label)


def setup(app):
    app.add_lexer("orv", TemplateLexer)
    app.connect("source-read", add_navigation)
    app.connect("doctree-read", add_labels)
