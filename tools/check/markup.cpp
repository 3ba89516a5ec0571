/* tools/check/markup.cpp - the tables of HTML's elements and attributes. */
#include "markup.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

#include "findings.h"
#include "tools/common/words.h"

using std::string_view;

static constexpr uint16_t BLOCK = ENDS_P | IS_SCOPE;

// Ascending by name.
static constexpr ElementRow elementRows[] = {
    {"a", IS_NAMED},
    {"abbr", HOLDS_PHRASES},
    {"acronym", HOLDS_PHRASES},
    {"address", BLOCK},
    {"applet", IS_SCOPE},
    {"area", IS_VOID},
    {"article", BLOCK},
    {"aside", BLOCK},
    {"audio", 0},
    {"b", HOLDS_PHRASES},
    {"base", IS_VOID | IS_META},
    {"basefont", IS_VOID | IS_META},
    {"bdi", HOLDS_PHRASES},
    {"bdo", HOLDS_PHRASES},
    {"bgsound", IS_VOID | IS_META},
    {"big", HOLDS_PHRASES},
    {"blink", 0},
    {"blockquote", BLOCK},
    {"body", IS_OPTIONAL | IS_SCOPE},
    {"br", IS_VOID},
    {"button", HOLDS_PHRASES | IS_INTERACTIVE | IS_SCOPE | IS_NAMED},
    {"canvas", 0},
    {"caption", IS_OPTIONAL | IS_SCOPE},
    {"center", BLOCK},
    {"cite", HOLDS_PHRASES},
    {"code", HOLDS_PHRASES},
    {"col", IS_VOID},
    {"colgroup", IS_OPTIONAL},
    {"data", HOLDS_PHRASES},
    {"datalist", 0},
    {"dd", IS_OPTIONAL | ENDS_P},
    {"del", 0},
    {"details", BLOCK},
    {"dfn", HOLDS_PHRASES},
    {"dialog", BLOCK},
    {"dir", BLOCK},
    {"div", ENDS_P},
    {"dl", BLOCK},
    {"dt", IS_OPTIONAL | ENDS_P},
    {"em", HOLDS_PHRASES},
    {"embed", IS_VOID | IS_INTERACTIVE},
    {"fieldset", BLOCK},
    {"figcaption", ENDS_P},
    {"figure", BLOCK},
    {"font", 0},
    {"footer", BLOCK},
    {"form", BLOCK},
    {"frame", IS_VOID},
    {"frameset", 0},
    {"h1", ENDS_P | HOLDS_PHRASES},
    {"h2", ENDS_P | HOLDS_PHRASES},
    {"h3", ENDS_P | HOLDS_PHRASES},
    {"h4", ENDS_P | HOLDS_PHRASES},
    {"h5", ENDS_P | HOLDS_PHRASES},
    {"h6", ENDS_P | HOLDS_PHRASES},
    {"head", IS_OPTIONAL | IS_SCOPE},
    {"header", BLOCK},
    {"hgroup", ENDS_P},
    {"hr", IS_VOID | ENDS_P},
    {"html", IS_OPTIONAL | IS_SCOPE},
    {"i", HOLDS_PHRASES},
    {"iframe", IS_RAW | IS_INTERACTIVE},
    {"image", IS_VOID},
    {"img", IS_VOID},
    {"input", IS_VOID | IS_INTERACTIVE | IS_FIELD},
    {"ins", 0},
    {"kbd", HOLDS_PHRASES},
    {"keygen", IS_VOID},
    {"label", HOLDS_PHRASES | IS_INTERACTIVE | IS_NAMED},
    {"legend", 0},
    {"li", IS_OPTIONAL | ENDS_P},
    {"link", IS_VOID | IS_META},
    {"listing", BLOCK},
    {"main", BLOCK},
    {"map", 0},
    {"mark", HOLDS_PHRASES},
    {"marquee", IS_SCOPE},
    {"math", 0},
    {"menu", BLOCK},
    {"meta", IS_VOID | IS_META},
    {"meter", HOLDS_PHRASES},
    {"nav", BLOCK},
    {"nobr", 0},
    {"noembed", IS_RAW},
    {"noframes", IS_RAW | IS_META},
    {"noscript", IS_META},
    {"object", IS_SCOPE},
    {"ol", BLOCK},
    {"optgroup", IS_OPTIONAL},
    {"option", IS_OPTIONAL},
    {"output", HOLDS_PHRASES},
    {"p", IS_OPTIONAL | ENDS_P | HOLDS_PHRASES},
    {"param", IS_VOID},
    {"picture", 0},
    {"pre", ENDS_P | HOLDS_PHRASES},
    {"progress", HOLDS_PHRASES},
    {"q", HOLDS_PHRASES},
    {"rb", IS_OPTIONAL},
    {"rp", IS_OPTIONAL},
    {"rt", IS_OPTIONAL},
    {"rtc", IS_OPTIONAL},
    {"ruby", HOLDS_PHRASES},
    {"s", HOLDS_PHRASES},
    {"samp", HOLDS_PHRASES},
    {"script", IS_RAW | IS_META},
    {"search", BLOCK},
    {"section", BLOCK},
    {"select", IS_INTERACTIVE | IS_SCOPE | IS_FIELD},
    {"selectedcontent", 0},
    {"slot", 0},
    {"small", HOLDS_PHRASES},
    {"source", IS_VOID},
    {"span", HOLDS_PHRASES},
    {"strike", 0},
    {"strong", HOLDS_PHRASES},
    {"style", IS_RAW | IS_META},
    {"sub", HOLDS_PHRASES},
    {"summary", ENDS_P},
    {"sup", HOLDS_PHRASES},
    {"svg", 0},
    {"table", BLOCK},
    {"tbody", IS_OPTIONAL},
    {"td", IS_OPTIONAL | IS_SCOPE},
    {"template", IS_META | IS_SCOPE},
    {"textarea", IS_RAW | IS_INTERACTIVE | IS_FIELD},
    {"tfoot", IS_OPTIONAL},
    {"th", IS_OPTIONAL | IS_SCOPE},
    {"thead", IS_OPTIONAL},
    {"time", HOLDS_PHRASES},
    {"title", IS_RAW | IS_META},
    {"tr", IS_OPTIONAL},
    {"track", IS_VOID},
    {"tt", HOLDS_PHRASES},
    {"u", HOLDS_PHRASES},
    {"ul", BLOCK},
    {"var", HOLDS_PHRASES},
    {"video", 0},
    {"wbr", IS_VOID},
    {"xmp", ENDS_P | IS_RAW},
};
static_assert(std::ranges::is_sorted(elementRows, {}, &ElementRow::name));

const ElementRow *findElement(string_view name)
{
    const auto *row = std::ranges::lower_bound(elementRows, name, {}, &ElementRow::name);
    return row != std::end(elementRows) && row->name == name ? row : nullptr;
}

string_view nearestElement(string_view name)
{
    std::vector<string_view> names;
    for (const ElementRow &row : elementRows)
        names.push_back(row.name);
    return nearest(name, names);
}

// The words of a text, as a table.
static constexpr size_t countWords(string_view text)
{
    return static_cast<size_t>(std::ranges::count(text, ' ')) + 1;
}

template <size_t COUNT> static constexpr auto tableOf(string_view text)
{
    std::array<string_view, COUNT> table;
    for (string_view &word : table) {
        word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return table;
}

// Those of any element: of HTML, its older versions, and browsers that are gone.
static constexpr string_view attributeWords =
    "abbr accept accept-charset accesskey action align alink allow allowfullscreen "
    "allowtransparency alt archive as async autocapitalize autocomplete autocorrect autofocus "
    "autoplay autosave axis background behavior bgcolor bgproperties blocking border "
    "bordercolor bordercolordark bordercolorlight bottommargin cellpadding cellspacing char "
    "charoff charset checked cite class classid clear code codebase codetype color cols "
    "colspan command commandfor compact content contenteditable controls controlslist coords "
    "crossorigin data datetime declare decoding default defer dir direction dirname disabled "
    "disablepictureinpicture download draggable dynsrc enctype enterkeyhint event face "
    "fetchpriority for form formaction formenctype formmethod formnovalidate formtarget frame "
    "frameborder framespacing headers height hidden hidefocus high href hreflang hspace "
    "http-equiv id imagesizes imagesrcset inert inputmode integrity is ismap itemid itemprop "
    "itemref itemscope itemtype kind label lang language leftmargin link list loading "
    "longdesc loop low lowsrc marginheight marginwidth max maxlength media method min "
    "minlength multiple muted name nohref nomodule nonce noresize noshade novalidate nowrap "
    "object onabort onafterprint onanimationend onanimationstart onbeforeinput onbeforeprint "
    "onbeforeunload onblur oncancel oncanplay onchange onclick onclose oncontextmenu oncopy "
    "oncut ondblclick ondrag ondragend ondragenter ondragleave ondragover ondragstart ondrop "
    "onended onerror onfocus onfocusin onfocusout onformdata onhashchange oninput oninvalid "
    "onkeydown onkeypress onkeyup onload onmessage onmousedown onmouseenter onmouseleave "
    "onmousemove onmouseout onmouseover onmouseup onoffline ononline onpagehide onpageshow "
    "onpaste onpause onplay onplaying onpointerdown onpointermove onpointerup onpopstate "
    "onprogress onreset onresize onscroll onsearch onselect onstorage onsubmit ontimeupdate "
    "ontoggle ontouchcancel ontouchend ontouchmove ontouchstart ontransitionend onunload "
    "onvolumechange onwaiting onwheel open optimum part pattern ping placeholder playsinline "
    "popover popovertarget popovertargetaction poster preload profile prompt property "
    "readonly referrerpolicy rel required results rev reversed rightmargin role rows rowspan "
    "rules sandbox scheme scope scrollamount scrolldelay scrolling selected shape size sizes "
    "slot span spellcheck src srcdoc srclang srcset standby start step style summary tabindex "
    "target text title topmargin translate truespeed type typeof unselectable usemap valign "
    "value valuetype version vlink vspace webkitdirectory width wrap writingsuggestions "
    "xlink:href xml:lang xml:space xmlns xmlns:xlink";

static constexpr string_view ariaWords =
    "aria-activedescendant aria-atomic aria-autocomplete aria-braillelabel "
    "aria-brailleroledescription aria-busy aria-checked aria-colcount aria-colindex "
    "aria-colindextext aria-colspan aria-controls aria-current aria-describedby "
    "aria-description aria-details aria-disabled aria-dropeffect aria-errormessage "
    "aria-expanded aria-flowto aria-grabbed aria-haspopup aria-hidden aria-invalid "
    "aria-keyshortcuts aria-label aria-labelledby aria-level aria-live aria-modal "
    "aria-multiline aria-multiselectable aria-orientation aria-owns aria-placeholder "
    "aria-posinset aria-pressed aria-readonly aria-relevant aria-required "
    "aria-roledescription aria-rowcount aria-rowindex aria-rowindextext aria-rowspan "
    "aria-selected aria-setsize aria-sort aria-valuemax aria-valuemin aria-valuenow "
    "aria-valuetext";

static constexpr auto attributes = tableOf<countWords(attributeWords)>(attributeWords);
static constexpr auto ariaAttributes = tableOf<countWords(ariaWords)>(ariaWords);

static_assert(std::ranges::is_sorted(attributes) && std::ranges::is_sorted(ariaAttributes));

string_view nearestAttribute(string_view name)
{
    const bool isAria = name.starts_with("aria-");
    const std::span<const string_view> names = isAria ? std::span<const string_view>(ariaAttributes)
                                                      : std::span<const string_view>(attributes);
    const bool isOwn = name.find_first_of("-:@.#[(*") != string_view::npos && !isAria;
    if (isOwn || std::ranges::binary_search(names, name))
        return "";
    return nearest(name, {names.begin(), names.end()});
}

const ChoiceRow *findChoice(string_view element, string_view attribute)
{
    static constexpr string_view types =
        "text hidden search tel url email password date month week time datetime-local datetime "
        "number range color checkbox radio file submit image reset button";
    static constexpr ChoiceRow table[] = {
        {"form", "method", "get post dialog", "get"},
        {"form", "enctype", "application/x-www-form-urlencoded multipart/form-data text/plain",
         "application/x-www-form-urlencoded"},
        {"input button", "formmethod", "get post dialog", "get"},
        {"input", "type", types, "text"},
        {"button", "type", "submit reset button", "submit"},
    };
    const auto *row = std::ranges::find_if(table, [&](const ChoiceRow &choice) {
        return choice.attribute == attribute && hasWord(choice.elements, element);
    });
    return row == std::end(table) ? nullptr : row;
}

namespace
{
struct Words {
    string_view name;
    string_view words;
};
} // namespace

static string_view wordsFor(std::span<const Words> table, string_view name)
{
    const auto row = std::ranges::find(table, name, &Words::name);
    return row == table.end() ? "" : row->words;
}

bool takesNumber(string_view element, string_view attribute)
{
    static constexpr Words table[] = {
        {"td", "colspan rowspan"},
        {"th", "colspan rowspan"},
        {"col", "span"},
        {"colgroup", "span"},
        {"input", "maxlength minlength size"},
        {"textarea", "maxlength minlength rows cols"},
        {"select", "size"},
        {"ol", "start"},
        {"li", "value"},
        {"meter", "value min max low high optimum"},
        {"progress", "value max"},
    };
    return attribute == "tabindex" || hasWord(wordsFor(table, element), attribute);
}

bool endsOpen(string_view start, string_view open)
{
    static constexpr Words table[] = {
        {"li", "li"},
        {"dt", "dt dd"},
        {"dd", "dt dd"},
        {"option", "option"},
        {"optgroup", "option optgroup"},
        {"tr", "tr td th caption colgroup"},
        {"td", "td th"},
        {"th", "td th"},
        {"tbody", "tbody thead tfoot tr td th caption colgroup"},
        {"thead", "tbody thead tfoot tr td th caption colgroup"},
        {"tfoot", "tbody thead tfoot tr td th caption colgroup"},
        {"colgroup", "caption colgroup"},
        {"rt", "rt rp rb"},
        {"rp", "rt rp rb"},
        {"body", "head"},
    };
    return hasWord(wordsFor(table, start), open);
}

string_view childrenOf(string_view parent)
{
    static constexpr Words table[] = {
        {"ul", "li script template"},
        {"ol", "li script template"},
        {"menu", "li script template"},
        {"dl", "dt dd div script template"},
        {"table", "caption colgroup col thead tbody tfoot tr script template style"},
        {"thead", "tr script template"},
        {"tbody", "tr script template"},
        {"tfoot", "tr script template"},
        {"tr", "td th script template"},
        {"colgroup", "col template"},
        {"picture", "source img script template"},
    };
    return wordsFor(table, parent);
}

string_view parentsOf(string_view child)
{
    static constexpr Words table[] = {
        {"li", "ul ol menu dir"},
        {"dt", "dl div"},
        {"dd", "dl div"},
        {"caption", "table"},
        {"colgroup", "table"},
        {"col", "table colgroup"},
        {"thead", "table"},
        {"tbody", "table"},
        {"tfoot", "table"},
        {"tr", "table thead tbody tfoot"},
        {"td", "tr"},
        {"th", "tr"},
        {"option", "select optgroup datalist"},
        {"optgroup", "select"},
        {"legend", "fieldset optgroup"},
        {"figcaption", "figure"},
        {"summary", "details"},
        {"source", "picture video audio"},
        {"track", "video audio"},
    };
    return wordsFor(table, child);
}
