/* tests/page_test.cpp - templates and their pages, piece by piece, with the log. */
#include <gtest/gtest.h>

#include "tests/harness.h"

namespace
{
struct Row {
    const char *name;
    std::string text;
    std::string page;
    std::string log;
};

const Row rows[] = {
    // page text
    {"text passes", "a<b>\r\n\v{? {x} ?> %s", "a<b>\r\n\v{? {x} ?> %s", ""},
    {"zero bytes pass", std::string("a\0b<?echo x?>", 13), std::string("a\0bx", 4), ""},
    {"comments vanish", "a<?-- x <?echo 'y'?> <? ?>\n?>b<?xml v='1'?>c", "abc", ""},
    {"a comment's lines count", "<?--\n\n<?>\n?>?>\n<?foo x", "\n<?foo x",
     "t.htm, line 5: Syntax error: Unknown Cmd\n"},
    {"no command", "<?echo?><?ECHO x?>", "<?echo?><?ECHO x?>",
     "t.htm, line 1: Syntax error: Unknown Cmd\nt.htm, line 1: Syntax error: Unknown Cmd\n"},
    {"if without a comparison", "<?if echo x?>", "<?if echo x?>",
     "t.htm, line 1: Syntax error: Unknown Cmd\n"},
    {"blanks in front of a keyword", "<? \n\techo\nx ?>.", "x.", ""},
    {"open at the end", "a<?-- b", "a", "t.htm: Syntax error: File ends inside cmd\n"},

    // arguments
    {"surplus argument", "x\n<?echo a b?>y", "x\ny",
     "t.htm, line 2: Syntax error: Cmd ending with too many arguments.\n"},
    {"quotes", "<?echo \"a b'`\"?><?echo 'c \"`'?><?echo `d '\"`?>", "a b'`c \"`d '\"", ""},
    {"an open quote ends with the command", "<?echo 'x?>y", "xy", ""},
    {"brackets in quotes", "<?echo 'a<b<<c<$1-d]<'?>|", "a<b<<c<-d]<|",
     "t.htm: Invalid numVar Index $1\n"},
    {"dollars", "<?echo 5$ ?><?echo '$$x'?><?echo $-?>", "5$$x$-", ""},
    {"joined elements", "<?setvariable var:n N?><?echo a'b'?><?echo x$var:n'!'y?>", "ab",
     "t.htm, line 1: Syntax error: Cmd ending with too many arguments.\n"},
    {"a quoted reference", "<?setvariable var:n N?><?echo '$var:n!$var:'?>",
     "N!ar:", "t.htm: Invalid numVar Index $v\n"},
    {"no argument", "x<?echo ?>", "x", "t.htm, line 1: Syntax error: Too few arguments in cmd\n"},
    {"no path", "x<?include ?>", "x",
     "t.htm, line 1: Syntax error: Too few arguments in cmd\n"
     "zarn - ERROR in executeCmd: Missing 1st argument in cmd ID108! (t.htm)\n"},
    {"no value", "x<?setvariable var:a[1] ?>y", "xy",
     "t.htm, line 1: Syntax error: Too few arguments in <? setvariable\n"},
    {"empty value", "x<?setvariable var:a[1] $var:b[]?>", "x",
     "t.htm, line 1: Syntax error: Missing array Index\n"
     "t.htm, line 1: Syntax error: Too few arguments in cmd\n"
     "zarn - ERROR in executeCmd: Missing 2nd argument in cmd ID306! (t.htm)\n"},

    // variables
    {"escaping",
     "<?setvariable var:v \"<a&'\\\"?><?setvariable var:w '\"'?>"
     "<?echo <$var:v$var:w?>|<?print $var:v$var:w?>|<?printjs $var:v$var:w?>",
     "<&lt;a&amp;'\\&quot;|<a&'\\\"|<a&\\'\\\\\"", ""},
    {"set once", "<?setvariableonce var:a 1?><?setvariableonce var:a 2?><?echo $var:a?>", "1", ""},
    {"unknown", "[<?echo $var:none?>$<?echo $var:a[3]?>]", "[$]", ""},
    {"arrays",
     "<?setvariable var:l[5] five?><?setvariable var:l[02] two?>"
     "<?setvariableonce var:l[2] no?><?setvariable var:l[x] ex?>"
     "<?echo $var:l[min]-$var:l[ max ]:$var:l[ 2 ]$var:l[+2]$var:l[x]?>",
     "2-5:twoex", ""},
    {"an index of references",
     "<?setvariable var:l[7] seven?><?setvariable var:i 7?>"
     "<?echo $var:l[$var:i]?><?echo $var:l[<?calc - 10 3?>]?>",
     "sevenseven", ""},
    {"a value from a command", "<?setvariable var:a <?echo b?>c?><?echo $var:a?>", "bc", ""},
    {"a value ends at its first iteration",
     "<?setvariable var:a [<?repeat [ 1 3 ] '$0'?>]?><?echo $var:a?>", "[1", ""},
    {"a command without result", "<?if eq a <?setvariable var:x foo?> no yes?><?echo $var:x?>",
     "yesfoo", ""},
    {"no row, no frame", "<?setvariable var:a $1?><?echo $1?>$", "$",
     "t.htm, near line 1: Invalid numVar Index $1\nt.htm: Invalid numVar Index $1\n"},

    // repeat and if
    {"bounds",
     "<?repeat [ 1 3 ] $0?>,<?repeat ] 1 3 ] $0?>,<?repeat [ 1 3 [ $0?>,"
     "<?repeat ] 1 3 [ $0?>,<?repeat [ 3 1 ] $0?>",
     "123,23,12,2,", ""},
    {"bad bounds", "<?repeat [ abc 3 ] $0?>\n<?repeat [ ' -1x' b ] $0?>", "0\n-10",
     "t.htm, near line 1: Warning: Lower boundary abc of repeat is no valid number "
     "in current context\n"
     "t.htm, near line 2: Warning: Upper boundary b of repeat is no valid number "
     "in current context\n"},
    {"extreme bounds",
     "<?repeat [ 2147483646 99999999999 ] '$0 '?>"
     "<?repeat ] 2147483647 2147483647 ] x?>"
     "<?repeat [ -99999999999 -2147483648 [ x?>",
     "2147483646 2147483647 ", ""},
    {"no marker", "<?repeat [ 1 2 '' $0?>", "12", ""},
    {"missing marker", "<?repeat [ 1 2 $var:a[] $0?>.", "12.",
     "t.htm, line 1: Syntax error: Missing array Index\n"
     "zarn - ERROR in getRepeatUpBound: NO MEMORY or missing repeat boundary. (t.htm)\n"},
    {"levels", "<?repeat [ 1 2 ] <?repeat [ 5 6 ] '$0$10 '?>?>$", "15 16 25 26 $", ""},
    {"short forms",
     "<?eq 1 1?><?neq 1 1?><?gt 2 1?><?gte 1 2?><?lt 1 2?><?lte 2 1?>"
     "<?and 1 0.5?><?or '' x?>",
     "10101001", ""},
    {"numbers and texts",
     "<?if eq 10 10.0?><?if eq 10 '10 '?><?if gt 9 10?><?if gt 9x 10x?>"
     "<?if eq 16777216 16777217?><?if eq inf inf?><?if neq inf inf?>"
     "<?if lt '' a?><?if eq 0x10 16?>",
     "100110111", ""},
    {"branches",
     "<?if eq a a then?>,<?if eq a b then?>,<?if eq a b then else?>,"
     "<?if eq a b '' '$var:x'else?>|",
     "then,,else,|", "t.htm, line 1: Syntax error: Too few arguments in <? if eq\n"},
    {"a short if swallows up to text", "<?if eq a ?><?echo x?>text", "text",
     "t.htm, line 1: Syntax error: Too few arguments in <? if eq\n"},

    // calc, errors, Base64
    {"calc",
     "<?calc + 1.25 2?>,<?calc '*' 1.5 1.5?>,<?calc / 7 2?>,<?calc \"-' 10 3?>,"
     "<?calc + 5. 1?>,<?calc / 1 0?>,<?calc + 12abc 1?>,<?calc * 1e15 10?>,"
     "<?calc + 12345678901.123456 0?>,<?calc + .123456789 0?>",
     "3.25,2.2,4,7,6.,inf,13,1000000000000000,12345678901.1234,0.123457", ""},
    {"bad operands", "<?calc + a 1?><?calc - 1 ''?>.", ".",
     "t.htm, near line 1: Warning: 1st operator a of calc is no valid number in current context\n"
     "t.htm, near line 1: Warning: 2nd operator  of calc is no valid number in current context\n"},
    {"errors without an error", "<?error found ?><?error message ?><?error message '[$1]'?>.",
     "0[].", "t.htm: Invalid numVar Index $1\nt.htm: Invalid numVar Index $1\n"},
    {"a base64 argument stays empty", "<?base64 t.htm?>", "PD9iYXNlNjQgdC5odG0/Pg==", ""},
    {"base64 of nothing", "<?base64 none?><?base64 .?>.", ".", ""},

    // queries
    {"unknown query", "<?query q?>|<?multiquery q $1?>|<?multiquerycount q?>", "||0",
     "t.htm: No query result received for q.\nt.htm: Invalid numVar Index $1\n"
     "t.htm: No query result received for q.\n"},
    {"failed query", "<?query fail x?><?multiquerycount fail?>", "x-1",
     "zarn - ERROR in doQuery: fQuery() returned -1! (t.htm)\n"
     "zarn - ERROR in doQuery: fQuery() returned -1! (t.htm)\n"},

    // includes
    {"no such file", "a<?include none.htm?>b", "ab", ""},
    {"a directory", "<?include '.'?>.", ".",
     "ERROR: mmap() on file . failed with error 'No such device' => No parsing...\n"},
    {"a device", "a<?include '/dev/null'?>c", "ac",
     "ERROR: mmap() on file /dev/null failed with error 'Invalid argument' => No parsing...\n"},
    {"refused in an argument", "<?repeat [ 1 1 ] <?if eq <?include t.htm?> '' x?>?>$", "x$",
     "zarn - ERROR in executeCmd: include in an argument of a running body refused! (t.htm)\n"},
    {"an unknown command's text", "<?nothing\n?>\n<?echo ok?>", "<?nothing\n?>\nok",
     "t.htm, line 1: Syntax error: Unknown Cmd\n"},
    {"too many for found", "x<?error found x?>y", "xy",
     "t.htm, line 1: Syntax error: Cmd ending with too many arguments.\n"},
};
} // namespace

TEST(Page, RendersAndLogs)
{
    for (const int32_t bytes : {0, 1, 7, 4096}) {
        gatheredBytes = bytes;
        for (const Row &row : rows) {
            const Outcome got = renderText(row.text);
            EXPECT_EQ(got.page, row.page) << row.name;
            EXPECT_EQ(got.log, row.log) << row.name;
            EXPECT_EQ(got.result, ORV_RUN_DONE) << row.name;
        }
    }
    gatheredBytes = 0;
}
