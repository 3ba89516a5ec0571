/* tools/check/kinds.cpp - the kinds of finding. Their ids stand in people's ignore
 * comments and build scripts: none is ever renamed. */
#include "findings.h"

#include <unistd.h>

#include <algorithm>

using enum Grade;

static constexpr Kind kindTable[] = {
    {"syntax", ERROR,
     "The interpreter logs this mistake when it reads the template, and drops the command.",
     "<p>Hello <?ehco $var:user?></p>"},
    {"gives-up", ERROR,
     "The run ends here and the rest of the page is lost: the page's very first command has too "
     "many arguments. Text in front of it, such as <!DOCTYPE html>, lets the rest come out.",
     "<?echo two words?>"},
    {"quote-open", WARNING,
     "The command ends inside a quote or an index. The interpreter takes that; mostly the ?> was "
     "meant to be "
     "text, which is not possible, or the closing quote is missing.",
     "<p><?echo 'Hello $var:user?></p>"},
    {"quote-inside", WARNING,
     "A quote ends in the midst of a text, which goes on as the next argument. A text that holds "
     "the quote around it is put between others; there are three.",
     "<?if eq $var:user Ann '<p class='a'>you</p>'?>"},
    {"end-in-text", WARNING,
     "A ?> in page text ends nothing and comes out. A command ends at the first ?> behind its "
     "begin that belongs to no command inside it, a comment at its first.",
     "<p><?echo $var:user?>?></p>"},
    {"character-invisible", WARNING,
     "A character that nobody sees, or that looks like a blank and is none for the interpreter, in "
     "an argument without quotes or in SQL.",
     "<p><?if eq $var:user\u00A0Ann `you`?></p>"},
    {"ignore-comment", WARNING,
     "A comment that is to leave findings out, but is in another form, names no kind, or hits "
     "nothing up to the end of the command behind it.",
     "<p><?-- orv-check: ignore escape-mising: it is a number ?><?echo $var:user?></p>"},
    {"include-counts", WARNING,
     "A variable that is counted up, or added to, in a body with an include: behind the include "
     "the "
     "command around it runs again from its begin, so the page counts too far.",
     "<?multiquery 'select n from t limit 9' `<?setvariable var:sum <?calc + $var:sum "
     "$1?>?><?include part.frm?>`?>"},
    {"include-missing", ERROR, "The template does not exist below the document root, or is empty.",
     "<?include prat.frm?>"},
    {"include-cycle", ERROR,
     "The template includes itself, by way of others or directly. The interpreter stops at 20 open "
     "templates. Inside a body, where a condition may end it, this is a warning.",
     "<p>part</p><?include part.frm?>"},
    {"include-depth", ERROR, "More than 20 templates would be open at once.",
     "(a page that includes a template, which includes another, and so on, 20 times)"},
    {"include-in-argument", ERROR,
     "An include in an argument that is computed. Inside a running body it is refused; at top "
     "level "
     "(a warning) the template's text goes to the page, not into the argument.",
     "<p><?echo `<?setvariable var:x <?include part.frm?>?><?echo $var:x?>`?></p>"},
    {"include-dynamic", WARNING,
     "The path is not written in the template, so nobody can tell which template is included.",
     "<?include $var:user?>"},
    {"include-rows", HINT,
     "Each include of a row has its command run again from the start, with its queries. A limit "
     "bounds that; so does the piece's text in the body, or in the query.",
     "<?multiquery 'select a from t' `<p>$1</p><?include part.frm?>`?>"},
    {"template-unused", WARNING,
     "A piece that no page includes: its suffix is one that pieces have.",
     "(a file old.frm beside others that pages include)"},
    {"base64-missing", ERROR,
     "The file does not exist below the document root; nothing is printed.",
     "<img alt=\"\" src=\"data:image/png;base64,<?base64 none.png?>\">"},
    {"base64-dynamic", ERROR,
     "The path comes from a value that others may choose. base64 opens any file of the device.",
     "<img alt=\"\" src=\"data:image/png;base64,<?base64 $var:user?>\">"},
    {"value-outside", ERROR,
     "A numbered value where there is no row: outside of bodies, or of a body whose command has "
     "none. A $ that is meant as text is written $$.",
     "<?setvariable var:price $5?><p><?echo $var:price?></p>"},
    {"value-level", ERROR,
     "A value of a level that is deeper than the bodies around it, or a counter of a body that "
     "does "
     "not count. Each body is a level, that of an if or an echo too; the outermost is level 0.",
     "<?if neq $var:user '' `<?multiquery 'select a from t' '<p>$1</p>'?>`?>"},
    {"value-outer", WARNING,
     "A body that runs for each row uses values of the rows around it, and none of its own.",
     "<?multiquery 'select a from t' `<ul><?multiquery 'select n from t' '<li>$1</li>'?></ul>`?>"},
    {"value-column", ERROR,
     "A column beyond those of the query, or beyond the one column of error message.",
     "<?multiquery 'select a, n from t' `<p>$1 $3</p>`?>"},
    {"value-digits", ERROR,
     "A digit and a letter are read as level and column: $1px is column 25 of level 1. Write "
     "$01px.",
     "<?multiquery 'select a, n from t' `<p title=\"$2px\">$1</p>`?>"},
    {"if-constant", WARNING,
     "A comparison that always comes out the same: of two constants, of a value with itself, or "
     "with a sign that was meant to say how.",
     "<p><?if eq user Ann `you`?></p>"},
    {"repeat-range", WARNING,
     "A range that is empty, or longer than anybody waits for; a bound that is no number counts as "
     "0.",
     "<p><?repeat [ 4 1 ] `$0`?></p>"},
    {"calc-number", WARNING, "A sum of what is no number, a decimal comma, or a division by 0.",
     "<p><?calc + 1,5 2?></p>"},
    {"query-sql", ERROR, "The database does not take the query.",
     "<?multiquery 'select nothere from t' `<p>$1</p>`?>"},
    {"query-injection", ERROR,
     "A variable or a value is a piece of SQL, and can be anything. For what the web program sets "
     "write a parameter, :NAME, which stands for the variable of that name. No parameter stands "
     "for columns and for what templates set: join the queries in one, or make numbers of them "
     "where they come from, cast(... as integer).",
     "<?multiquery \"select n from t where a = '$var:find'\" `<p>$1</p>`?>"},
    {"query-parameter", ERROR,
     "The web program sets no variable of the parameter's name, so it is NULL. What templates set "
     "is no parameter.",
     "<?multiquery \"select n from t where a = ':find'\" `<p>$1</p>`?>"},
    {"query-writes", ERROR, "The statement changes the database; pages only read.",
     "<?query 'delete from t'?>"},
    {"texts-broken", ERROR,
     "A language's file has a mistake. The language is left out until that is mended.",
     "msgid \"a  (without the closing quote)"},
    {"text-missing", ERROR,
     "Languages without a text of that id. A warning where only some lack it: they show the "
     "fallback language.",
     "<p>{?titel?}</p>"},
    {"text-malformed", WARNING,
     "A {? that begins no text field, or a field that lacks its first ?. Ids consist of letters, "
     "digits, full stops, underscores and colons.",
     "<p>{?title}</p>"},
    {"text-unused", WARNING, "No template of the site uses this text.",
     "msgid \"site.old\" in a language's texts"},
    {"text-breaks", ERROR,
     "A language's text holds what ends the quote, the command, the attribute or the script's "
     "string "
     "that it stands in, or begins a command, a variable or a value.",
     "<?echo '{?site.title?}'?> where the text is: it's"},
    {"text-compared", WARNING,
     "A text field in a comparison. Another language, or the marks for translators, change how it "
     "ends.",
     "<p><?if eq {?title?} Title `x`?></p>"},
    {"text-reference", ERROR,
     "A reference or placeholder of the source text, $1, $var:name, %d or {0}, is lost, added or "
     "changed; or those that take their values in turn stand in another order.",
     "msgstr \"$1 Dateien\" where the source text is: $1 of $2 files"},
    {"text-tags", ERROR,
     "A translation has other tags than its source text, puts them in a wrong order, or has one "
     "without an end or without an attribute.",
     "msgstr \"ein <b>Wort\" where the source text is: a <b>word</b>"},
    {"text-entity", WARNING, "An entity that is none: unknown, without its semicolon, with blanks.",
     "msgstr \"a&nbps;b\""},
    {"text-blank", WARNING,
     "A blank at the edge of a translation that its source text has not, or the other way round; "
     "or "
     "a text of nothing but blanks.",
     "msgstr \"Name:\" where the source text ends with a blank"},
    {"text-control", WARNING, "A character that no text has, or the sign for one that was lost.",
     "msgstr \"a\\001b\""},
    {"text-length", WARNING,
     "A text has more characters than its flag max-length or the maxlength of the form's field "
     "allows; a tag counts nothing, an entity one.",
     "#, max-length:20"},
    {"text-language", WARNING, "The header of a PO file names another language than its name.",
     "\"Language: it\\n\" in de.po"},
    {"text-ending", HINT,
     "The sentence ends in another way than that of the source text. Languages have their own "
     "ways, "
     "so this is a hint only.",
     "msgstr \"Es ist\" where the source text is: It is."},
    {"text-hard-coded", WARNING,
     "Words that people read stand in the template itself, in page text or in an attribute such as "
     "alt, so that no language can have its own. Scripts are left out.",
     "<p>Hard coded</p>", true},
    {"variable-unset", ERROR,
     "The variable is read, but neither a template nor the web program (--set, or a field of a "
     "form) sets it.",
     "<?setvariable var:color red?><p><?echo $var:colour?> <?echo $var:color?></p>"},
    {"variable-in-text", WARNING,
     "A variable in page text, outside of commands, comes out as it is written.",
     "<p>$var:user, <?if eq var:user Ann `you`?>, {{user}}</p>"},
    {"variable-unused", WARNING, "A variable that templates set, and that nothing reads.",
     "<?setvariable var:old 1?>"},
    {"variable-hidden", WARNING,
     "The template sets a variable that the web program sets too, or that a form's field or a link "
     "sends: that value hides it.",
     "<a href=\"?page=2\">2</a><?setvariable var:page 1?><p><?echo $var:page?></p>"},
    {"variable-index", ERROR,
     "An index that no element can have. A whole number is an index of its value, so [07] is "
     "stored "
     "as [7]; quotes cannot stand in an index.",
     "<p><?repeat [ 1 3 ] `<?echo $var:port[$0+1]?>`?></p>"},
    {"variable-name", ERROR,
     "A name has letters and digits only; what stands behind them is the value, or text.",
     "x<?setvariable var:first_name Ann?>"},
    {"escape-missing", ERROR,
     "A value that can hold anything comes out as it is, in page text or an attribute. echo, query "
     "and multiquery escape what stands in their bodies directly; the bodies of if and repeat are "
     "bodies of their own, without escaping.",
     "<p><?print $var:user?></p>"},
    {"escape-attribute", ERROR,
     "HTML escaping leaves ' and blanks alone: between ' or without quotes, a value can end the "
     "attribute.",
     "<a title='<?echo $var:user?>'>x</a>"},
    {"escape-script", ERROR,
     "A value in a script outside of a string, or in a string without script escaping (printjs, "
     "queryjs, multiqueryjs).",
     "<script>var name = '<?echo $var:user?>'</script>"},
    {"escape-url", ERROR,
     "A value is the beginning of an address: javascript: would run in the page.",
     "<a href=\"<?echo $var:user?>\">x</a>"},
    {"escape-style", ERROR, "A value in a style; no escaping makes it safe there.",
     "<p style=\"color: <?echo $var:user?>\">x</p>"},
    {"escape-name", ERROR, "A value as the name of a tag or an attribute.",
     "<p <?echo $var:user?>>x</p>"},
    {"escape-document", ERROR,
     "A value in srcdoc. The attribute is read as a page of its own, so its escaping is undone "
     "before that page begins.",
     "<iframe title=\"x\" srcdoc=\"<?echo $var:user?>\"></iframe>"},
    {"escape-context", ERROR,
     "The branches of an if, or the iterations of a body, end in different parts of HTML, so what "
     "follows is read in one way or another.",
     "<p title=\"<?if eq $var:user Ann `x\">`?>text</p>"},
    {"html-tag", ERROR,
     "Tags that do not belong together: an end tag that closes nothing, an element that is never "
     "closed, an end tag in front of that of an element inside, a name that HTML does not have. "
     "The page is looked at as a whole, through includes, branches and bodies; what any way "
     "through it makes right is right. End tags that HTML lets go, as </li>, may be left out.",
     "<p><b>bold</i></p>"},
    {"html-attribute", ERROR,
     "An attribute that browsers read in another way than it looks: a quote or a blank is "
     "missing, it stands in the tag twice, its name is misspelt, its value is none that it can "
     "have.",
     "<p class=\"a\" class=\"b\">x</p>"},
    {"html-open", ERROR,
     "A comment, script, style, title or tag that has no end: all that follows is lost in it.",
     "<p title=\"x>text</p>"},
    {"html-nesting", ERROR,
     "An element where HTML has no place for it, so that browsers put it elsewhere: a block in a "
     "paragraph, a form in a form, a link in a link, a row outside of its table.",
     "<a href=\"#\">one <a href=\"#\">two</a></a>"},
    {"html-id", ERROR,
     "An id that two elements of one page have, in one of its ways at least, or each row of a "
     "body; or one with blanks. Of html, head, body, main and title a page has one, too.",
     "<p id=\"a\">x</p><p id=\"a\">y</p>"},
    {"html-reference", ERROR,
     "An attribute names an id that no element of the page has, whatever its branches: for of a "
     "label, aria-labelledby and the like, form, list, a link to #id; a script's getElementById, "
     "of all pages; target, a frame that there is not (warnings, unless it begins with _).",
     "<label for=\"name\">Name</label>"},
    {"html-name", WARNING,
     "What those who do not see the page are told nothing of: a field without a label, an image "
     "without alt, a link or button without text.",
     "<img src=\"data:,\">"},
    {"html-document", WARNING,
     "A whole page, with <html>, lacks its title, its lang or <!DOCTYPE html>.",
     "<html><body><p>x</p></body></html>"},
    {"html-entity", WARNING, "A character reference that is misspelt or has no semicolon.",
     "<p>a&nbps;b</p>"},
    {"link-missing", ERROR,
     "A link, form, image or script leads to a file that is not below the document root; or what "
     "a style sheet, a script's import, fetch or location, or a manifest names. What the web "
     "program answers itself is named with --route.",
     "<a href=\"none.htm\">x</a>"},
    {"file-bytes", ERROR,
     "A file that is not UTF-8, as pages and texts are: a byte of Latin-1, UTF-16, a zero byte, a "
     "byte order mark where a file is included or in JSON, another charset in a meta element.",
     "<meta charset=\"iso-8859-1\"> on a site with texts"},
    {"page-empty", WARNING,
     "A page without anything: an empty file whose name ends in .htm or .html, or one that is "
     "named as a page.",
     "(an empty file, index.htm)"},
    {"escape-query", WARNING,
     "A text column in the query part of an address. HTML escaping leaves &, #, + and % to the "
     "address, where they end or change what is sent. Send a number that stands for it, or let a "
     "form do it, whose fields the browser encodes.",
     "<?multiquery 'select name from t' `<a href=\"?name=$1\">$1</a>`?>"},
    {"json-syntax", ERROR,
     "A JSON page, or a script element of JSON, is no JSON in some way through it: for no row, "
     "one row or more of them, in one branch; or an object has a name twice (a warning).",
     "[<?multiquery 'select n from t' '$1,'?>] in a .json page"},
    {"escape-json", ERROR,
     "A value in JSON that is not escaped for it. HTML and script escaping make no JSON: let "
     "SQL's json_quote or json_object do it, and print that by querytext.",
     "{\"name\": \"<?printjs $var:name?>\"} in a .json page"},
    {"limit", ERROR,
     "More than the interpreter takes: 64 bodies inside each other, values of level 9 at most, 35 "
     "columns, 128 characters of a text field's id, 66559 bytes of computed arguments, some 10000 "
     "pieces of one argument.",
     "<?query 'select 1, 2, ... 36'?>"},
};

std::span<const Kind> allKinds()
{
    return kindTable;
}

const Kind *findKind(std::string_view id)
{
    const auto *found = std::find_if(std::begin(kindTable), std::end(kindTable),
                                     [&](const Kind &k) { return k.id == id; });
    return found == std::end(kindTable) ? nullptr : found;
}

std::vector<std::string_view> kindIds()
{
    std::vector<std::string_view> ids;
    for (const Kind &kind : kindTable)
        ids.emplace_back(kind.id);
    return ids;
}

// Breaks a text into lines of that width.
static std::string wrap(std::string_view text, size_t width)
{
    std::string out;
    while (!text.empty()) {
        size_t end = text.size();
        if (end > width) {
            end = text.rfind(' ', width);
            if (end == std::string_view::npos)
                end = std::min(text.find(' '), text.size());
        }
        out += std::string(text.substr(0, end)) + "\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return out;
}

std::string explainKind(const Kind &kind)
{
    std::string grade = gradeName(kind.severity);
    grade[0] = static_cast<char>(grade[0] - 'a' + 'A');
    const std::string off = kind.isOff ? ", but looked for with --also only" : "";
    return "## " + std::string(kind.id) + "\n\n" + wrap(grade + off + ". " + kind.explanation, 78) +
           "\n    " + kind.example + "\n";
}

std::string listKinds()
{
    std::string out;
    for (const Kind &kind : kindTable)
        out += (out.empty() ? "" : "\n") + explainKind(kind);
    return out;
}

std::string kindUri(const Kind &kind)
{
    constexpr std::string_view uri = ORV_KINDS_URI;
    constexpr std::string_view scheme = "file://";
    if (uri.starts_with(scheme) && access(uri.data() + scheme.size(), R_OK) != 0)
        return "";
    return std::string(uri) + "#" + kind.id;
}
