/* bench/dialects.cpp - the template languages of the engines. */
#include "page.h"

#include <initializer_list>

using std::string;
using std::string_view;
namespace fs = std::filesystem;

namespace
{
// How an engine writes the nodes; @1 stands for a node's a, or else its number,
// @2 and @3 for its b and c. Engines without logic get conditions, sums and
// counters as data.
struct Dialect {
    const char *extension;
    const char *variable;
    const char *field;
    const char *column;
    const char *ifVariable;
    const char *ifColumn;
    const char *rows;
    const char *rowsEnd;
    const char *repeat;
    const char *repeatEnd;
    const char *counter;
    const char *sum;
    const char *include;
};
} // namespace

static constexpr Dialect dialects[] = {
    {
        .extension = ".htm",
        .variable = "<?echo $var:@1?>",
        .field = "{?@1?}",
        .column = "$@1",
        .ifVariable = "<?if eq $var:@1 on \"@2\" \"@3\"?>",
        .ifColumn = "<?if eq $@1 up \"@2\" \"@3\"?>",
        .rows = "<?multiquery '@1' '",
        .rowsEnd = "'?>",
        .repeat = "<?repeat [ 1 @1 ] '",
        .repeatEnd = "'?>",
        .counter = "$0",
        .sum = "<?calc + $var:@1 $var:@2?>",
        .include = "<?include @1.htm?>",
    },
    {
        .extension = ".tpl",
        .variable = "{{@1:h}}",
        .field = "{{@1}}",
        .column = "{{c@1:h}}",
        .ifVariable = "{{#@1Yes}}@2{{/@1Yes}}{{#@1No}}@3{{/@1No}}",
        .ifColumn = "{{#c@1Yes}}@2{{/c@1Yes}}{{#c@1No}}@3{{/c@1No}}",
        .rows = "{{#@1}}",
        .rowsEnd = "{{/@1}}",
        .repeat = "{{#repeat}}",
        .repeatEnd = "{{/repeat}}",
        .counter = "{{c1}}",
        .sum = "{{@1Plus@2}}",
        .include = "{{>@1}}",
    },
    {
        .extension = ".mustache",
        .variable = "{{@1}}",
        .field = "{{{@1}}}",
        .column = "{{c@1}}",
        .ifVariable = "{{#@1Yes}}@2{{/@1Yes}}{{^@1Yes}}@3{{/@1Yes}}",
        .ifColumn = "{{#c@1Yes}}@2{{/c@1Yes}}{{^c@1Yes}}@3{{/c@1Yes}}",
        .rows = "{{#@1}}",
        .rowsEnd = "{{/@1}}",
        .repeat = "{{#repeat}}",
        .repeatEnd = "{{/repeat}}",
        .counter = "{{c1}}",
        .sum = "{{@1Plus@2}}",
        .include = "{{>@1}}",
    },
    {
        .extension = ".cst",
        .variable = "<?cs var:html_escape(v.@1) ?>",
        .field = "<?cs var:t.@1 ?>",
        .column = "<?cs var:html_escape(row.c@1) ?>",
        .ifVariable = "<?cs if:v.@1 == \"on\" ?>@2<?cs else ?>@3<?cs /if ?>",
        .ifColumn = "<?cs if:row.c@1 == \"up\" ?>@2<?cs else ?>@3<?cs /if ?>",
        .rows = "<?cs each:row = q.@1 ?>",
        .rowsEnd = "<?cs /each ?>",
        .repeat = "<?cs loop:i = #1, #@1, #1 ?>",
        .repeatEnd = "<?cs /loop ?>",
        .counter = "<?cs var:i ?>",
        .sum = "<?cs var:#v.@1 + #v.@2 ?>",
        .include = "<?cs include:\"@1.cst\" ?>",
    },
    {
        .extension = ".lt",
        .variable = "<%= h(v.@1) %>",
        .field = "<%= t.@1 %>",
        .column = "<%= h(row[@1]) %>",
        .ifVariable = "<% if v.@1 == 'on' then %>@2<% else %>@3<% end %>",
        .ifColumn = "<% if row[@1] == 'up' then %>@2<% else %>@3<% end %>",
        .rows = "<% for _, row in ipairs(q.@1) do %>",
        .rowsEnd = "<% end %>",
        .repeat = "<% for i = 1, @1 do %>",
        .repeatEnd = "<% end %>",
        .counter = "<%= i %>",
        .sum = "<%= v.@1 + v.@2 %>",
        .include = "<% n = include('@1') %>",
    },
    {
        .extension = ".php",
        .variable = "<?=htmlspecialchars($v['@1'])?>",
        .field = "<?=$t['@1']?>",
        .column = "<?=htmlspecialchars($row[@1])?>",
        .ifVariable = "<?php if ($v['@1'] == 'on'): ?>@2<?php else: ?>@3<?php endif ?>",
        .ifColumn = "<?php if ($row[@1] == 'up'): ?>@2<?php else: ?>@3<?php endif ?>",
        .rows = "<?php foreach ($q['@1'] as $row): ?>",
        .rowsEnd = "<?php endforeach ?>",
        .repeat = "<?php for ($i = 1; $i <= @1; $i++): ?>",
        .repeatEnd = "<?php endfor ?>",
        .counter = "<?=$i?>",
        .sum = "<?=$v['@1'] + $v['@2']?>",
        .include = "<?php include __DIR__ . '/@1.php' ?>",
    },
    {
        .extension = ".j2",
        .variable = "{{ @1 }}",
        .field = "{{ t['@1']|safe }}",
        .column = "{{ row[@1] }}",
        .ifVariable = "{% if @1 == 'on' %}@2{% else %}@3{% endif %}",
        .ifColumn = "{% if row[@1] == 'up' %}@2{% else %}@3{% endif %}",
        .rows = "{% for row in q['@1'] %}",
        .rowsEnd = "{% endfor %}",
        .repeat = "{% for i in range(1, @1 + 1) %}",
        .repeatEnd = "{% endfor %}",
        .counter = "{{ i }}",
        .sum = "{{ @1|int + @2|int }}",
        .include = "{% include '@1.j2' %}",
    },
};

static string fill(string_view pattern, std::initializer_list<string_view> values)
{
    string filled;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '@')
            filled += values.begin()[pattern[++i] - '1'];
        else
            filled += pattern[i];
    }
    return filled;
}

// A template, and those that it includes, in the dialect; the latter as files.
static string printTemplate(const Dialect &dialect, const Nodes &nodes, const fs::path &folder)
{
    string text;
    for (const Node &node : nodes) {
        const string number = std::to_string(node.number);
        const auto body = [&] { return printTemplate(dialect, node.body, folder); };
        switch (node.kind) {
        case Kind::TEXT:
            text += node.a;
            break;
        case Kind::VARIABLE:
            text += fill(dialect.variable, {node.a});
            break;
        case Kind::FIELD:
            text += fill(dialect.field, {node.a});
            break;
        case Kind::COLUMN:
            text += fill(dialect.column, {number});
            break;
        case Kind::IF_VARIABLE:
            text += fill(dialect.ifVariable, {node.a, node.b, node.c});
            break;
        case Kind::IF_COLUMN:
            text += fill(dialect.ifColumn, {number, node.b, node.c});
            break;
        case Kind::ROWS:
            text += fill(dialect.rows, {node.a}) + body() + fill(dialect.rowsEnd, {node.a});
            break;
        case Kind::REPEAT:
            text += fill(dialect.repeat, {number}) + body() + dialect.repeatEnd;
            break;
        case Kind::COUNTER:
            text += dialect.counter;
            break;
        case Kind::SUM:
            text += fill(dialect.sum, {node.a, node.b});
            break;
        case Kind::INCLUDE:
            writeFile(folder / (node.a + dialect.extension), body());
            text += fill(dialect.include, {node.a});
            break;
        }
    }
    return text;
}

void writeTemplates(const Page &page, const fs::path &folder)
{
    for (const Dialect &dialect : dialects)
        writeFile(folder / (string("page") + dialect.extension),
                  printTemplate(dialect, page.nodes, folder));
}
