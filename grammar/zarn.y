/* grammar/zarn.y - the language of the templates.
 *
 * Page text has been written when HTML_TEXT arrives. A top-level command runs
 * at its CMD_END, before anything behind it is scanned: every state from there
 * to the command has one possible reduction, which is taken without lookahead.
 * A command inside an argument only becomes an element of it. Malformed
 * commands end in the rules with error, which name and drop them. */

%define api.prefix {zarn_}
%locations
%expect 0
%initial-action { zarn_nerrs = 0; }

%code requires {
#include <stdint.h>

struct Arg;
struct ArgElem;
struct Cmd;

// The parser's objects are exported.
#pragma GCC visibility push(default)
extern "C" int zarn_parse();
extern int zarn_char;
extern int zarn_nerrs;
}

%{
#include "base/bounds.h"

#define YYINITDEPTH PARSER_INITIAL_SYMBOLS
#define YYMAXDEPTH PARSER_MAX_SYMBOLS
// A symbol stands where the first symbol of its rule does.
#define YYLLOC_DEFAULT(symbol, parts, count) ((symbol) = YYRHSLOC(parts, (count) ? 1 : 0))
%}

%union {
    char *text;
    Cmd *cmd;
    Arg *arg;
    ArgElem *elem;
    int token;
}

%code provides {
#pragma GCC visibility pop
}

%code {
#include <stdlib.h>

#include "exec/exec.h"
#include "grammar/parse.h"
#include "scanner/scanner.h"
}

// Codes from 258 on, in this order. Some are never produced; they keep the
// others in their places.
%token HTML_TEXT
%token <text> F_SETVARIABLE F_SETVARIABLEONCE F_SETARRAY F_SETARRAYONCE
%token <elem> ARG_TEXT ARG_GETVAR ARG_NUMVAR ARG_GETARRAY ARG_MINARRAY ARG_MAXARRAY
%token F_UNDEF F_ECHO F_PRINT F_PRINTJS F_INCLUDE
%token F_QUERY F_QUERYTEXT F_QUERYJS
%token F_MULTIQUERY F_MULTIQUERYTEXT F_MULTIQUERYJS F_MULTIQUERYCOUNT
%token F_REPEATINCL F_REPEATEXCL
%token F_IFEQ F_IFNEQ F_IFGT F_IFGTE F_IFLT F_IFLTE F_IFAND F_IFOR
%token F_CALCPLUS F_CALCMIN F_CALCMULT F_CALCDIV
%token F_ERRORFOUND F_ERRORTABLE F_ERRORTABLESIZE F_ERRORCOUNT F_ERRORMESSAGE F_ERRORDEBUG
%token F_BASE64 ARG_END CMD_END EOF_TAG ERROR_LEFT ERROR_RIGHT ARG_RIGHT

%type <cmd> cmd
%type <arg> arg arglast
%type <token> query repeat if calc

// What is discarded or popped is released. The end of a template that is
// discarded closes it all the same: zarn_lex sees to that.
%destructor { free($$); } <text>
%destructor { destroyCmd(&$$); } <cmd>
%destructor { destroyArg(&$$); } <arg>
%destructor { destroyElem($$); } <elem>

%%

htmlroot: %empty
        | html
        ;

// What makes up a page. The scanner is told when no text that follows matters here;
// while the parser recovers from an error it counts every token.
html    : html cmd                  { runCommand($2); passText(!YYRECOVERING()); }
        | cmd                       { runCommand($1); passText(!YYRECOVERING()); }
        | html HTML_TEXT            { passText(!YYRECOVERING()); }
        | HTML_TEXT                 { passText(!YYRECOVERING()); }
        | html end                  { passText(!YYRECOVERING()); }
        | end                       { passText(!YYRECOVERING()); }
        | html error CMD_END        { reportSurplus(@3.first_line); }
        ;

cmd     : F_SETVARIABLE arglast     { $$ = makeUnary(F_SETVARIABLE, @1.first_line, $1, $2); }
        | F_SETVARIABLEONCE arglast { $$ = makeUnary(F_SETVARIABLEONCE, @1.first_line, $1, $2); }
        | F_SETARRAY arg arglast    { $$ = makeElement(F_SETARRAY, @2.first_line, $1, $2, $3); }
        | F_SETARRAYONCE arg arglast
                                    { $$ = makeElement(F_SETARRAYONCE, @2.first_line, $1, $2, $3); }
        | F_ECHO arglast            { $$ = makeUnary(F_ECHO, @1.first_line, nullptr, $2); }
        | F_PRINT arglast           { $$ = makeUnary(F_PRINT, @1.first_line, nullptr, $2); }
        | F_PRINTJS arglast         { $$ = makeUnary(F_PRINTJS, @1.first_line, nullptr, $2); }
        | F_INCLUDE arglast         { $$ = makeUnary(F_INCLUDE, @1.first_line, nullptr, $2); }
        | F_BASE64 arglast          { $$ = makeUnary(F_BASE64, @1.first_line, nullptr, $2); }
        | query arglast             { $$ = makeUnary($1, @1.first_line, nullptr, $2); }
        | query arg arglast         { $$ = makeCommand($1, $2, $3); }
        | repeat arg arg arg arglast { $$ = makeRepeat($1, $2, $3, $4, $5); }
        | if arg arglast            { $$ = makeCommand($1, $2, $3); }
        | if arg arg arglast        { $$ = makeCommand($1, $2, $3, $4); }
        | if arg arg arg arglast    { $$ = makeCommand($1, $2, $3, $4, $5); }
        | calc arg arglast          { $$ = makeCommand($1, $2, $3); }
        | F_ERRORMESSAGE arglast    { $$ = makeCommand(F_ERRORMESSAGE, $2); }
        | F_ERRORFOUND CMD_END      { $$ = makeCommand(F_ERRORFOUND); }
        | F_UNDEF HTML_TEXT         { $$ = dropUnknown(@1.first_line); }
        | F_UNDEF ARG_TEXT error CMD_END { $$ = dropUnknown(@1.first_line); destroyElem($2); }
        | F_UNDEF error CMD_END     { $$ = dropUnknown(@1.first_line); }
        | F_SETARRAY error HTML_TEXT { $$ = dropMalformed(F_SETARRAY, @1.first_line); free($1); }
        | F_SETARRAYONCE error HTML_TEXT
                                    { $$ = dropMalformed(F_SETARRAYONCE, @1.first_line); free($1); }
        | repeat error HTML_TEXT    { $$ = dropMalformed($1, @1.first_line); }
        | if error HTML_TEXT        { $$ = dropMalformed($1, @1.first_line); }
        | calc error HTML_TEXT      { $$ = dropMalformed($1, @1.first_line); }
        ;

query   : F_QUERY                   { $$ = F_QUERY; }
        | F_QUERYTEXT               { $$ = F_QUERYTEXT; }
        | F_QUERYJS                 { $$ = F_QUERYJS; }
        | F_MULTIQUERY              { $$ = F_MULTIQUERY; }
        | F_MULTIQUERYTEXT          { $$ = F_MULTIQUERYTEXT; }
        | F_MULTIQUERYJS            { $$ = F_MULTIQUERYJS; }
        | F_MULTIQUERYCOUNT         { $$ = F_MULTIQUERYCOUNT; }
        ;

repeat  : F_REPEATINCL              { $$ = F_REPEATINCL; }
        | F_REPEATEXCL              { $$ = F_REPEATEXCL; }
        ;

if      : F_IFEQ                    { $$ = F_IFEQ; }
        | F_IFNEQ                   { $$ = F_IFNEQ; }
        | F_IFGT                    { $$ = F_IFGT; }
        | F_IFGTE                   { $$ = F_IFGTE; }
        | F_IFLT                    { $$ = F_IFLT; }
        | F_IFLTE                   { $$ = F_IFLTE; }
        | F_IFAND                   { $$ = F_IFAND; }
        | F_IFOR                    { $$ = F_IFOR; }
        ;

calc    : F_CALCPLUS                { $$ = F_CALCPLUS; }
        | F_CALCMIN                 { $$ = F_CALCMIN; }
        | F_CALCMULT                { $$ = F_CALCMULT; }
        | F_CALCDIV                 { $$ = F_CALCDIV; }
        ;

// The end of an included template; where it ends a command, it does so as CMD_END.
end     : EOF_TAG                   { doExclude(); }
        ;

// An argument's elements are added from its end on, so they come out in order.
arg     : cmd arg                   { $$ = addArgElem($2, ELEM_CMD, $1); }
        | ARG_TEXT arg              { $$ = putElem($1, $2); }
        | ARG_GETVAR arg            { $$ = putElem($1, $2); }
        | ARG_NUMVAR arg            { $$ = putElem($1, $2); }
        | ARG_GETARRAY arg          { $$ = addArrayRef($1, @1.first_line, $2); }
        | ARG_MINARRAY arg          { $$ = putElem($1, $2); }
        | ARG_MAXARRAY arg          { $$ = putElem($1, $2); }
        | ARG_END                   { $$ = nullptr; }
        ;

arglast : cmd arglast               { $$ = addArgElem($2, ELEM_CMD, $1); }
        | ARG_TEXT arglast          { $$ = putElem($1, $2); }
        | ARG_GETVAR arglast        { $$ = putElem($1, $2); }
        | ARG_NUMVAR arglast        { $$ = putElem($1, $2); }
        | ARG_GETARRAY arglast      { $$ = addArrayRef($1, @1.first_line, $2); }
        | ARG_MINARRAY arglast      { $$ = putElem($1, $2); }
        | ARG_MAXARRAY arglast      { $$ = putElem($1, $2); }
        | end                       { $$ = nullptr; }
        | CMD_END                   { $$ = nullptr; }
        ;

%%
