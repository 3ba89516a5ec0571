/* tools/check/columns.cpp - the values of a query's columns, read off the program that
 * SQLite makes of it: EXPLAIN lists that, and runs nothing.
 *
 * A table keeps text out of a column of numbers only when it is STRICT. What comes out of
 * it passes registers on its way to the result, and each instruction says what becomes of
 * them, whatever the query looks like: joins, views, compounds, subqueries. The program
 * is followed with values in the place of values until nothing new comes: each stretch
 * without a jump by itself, from all that the registers hold where it can be come from.
 * Instructions are SQLite's own affair: one that is not listed here makes all columns free. */
#include "columns.h"

#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "tools/common/words.h"

using std::string;
using std::string_view;

static constexpr size_t MOST_HELD = 64;
// A longer program is followed less closely, in less time: what a register holds at the end of any
// stretch is taken to be there at the begin of each.
static constexpr size_t LONGEST_PROGRAM = 1000;
static const Values ANYTHING = {true, {}};

bool Values::join(const Values &other)
{
    if (isFree && (!other.isFree || other.json >= json))
        return false;
    const size_t countBefore = texts.size();
    const uint8_t jsonBefore = std::exchange(json, other.json);
    if (!other.isFree) {
        texts.insert(other.texts.begin(), other.texts.end());
        if (texts.size() <= MOST_HELD)
            return json != jsonBefore || texts.size() != countBefore;
        json = 0;
    }
    isFree = true;
    texts.clear();
    return true;
}

// ---- what is stored ----

// Of each table and index of the database %Q, by its page: whether a column holds numbers only.
// A generated column that is not stored is computed where it is read. A table without rowid is
// stored as its primary key's index.
static constexpr char storedSql[] = R"(
with item(type, name, tbl_name, rootpage) as (
    select type, name, tbl_name, rootpage from "%w".sqlite_schema),
kept(name, wr, strict) as (
    select m.name, l.wr, l.strict from item m, pragma_table_list(m.name) l
        where m.type = 'table' and l.schema = %Q),
number(tbl, cid, hidden, yes) as (
    select l.name, x.cid, x.hidden, l.strict and upper(x.type) in ('INT', 'INTEGER', 'REAL')
        from kept l, pragma_table_xinfo(l.name, %Q) x),
indexed(root, tbl, idx) as (
    select rootpage, tbl_name, name from item where type = 'index'
    union all
    select m.rootpage, m.name, i.name
        from item m join kept l on l.name = m.name, pragma_index_list(m.name, %Q) i
        where m.type = 'table' and l.wr and i.origin = 'pk')
select m.rootpage, n.cid, n.yes
    from item m join kept l on l.name = m.name, number n
    where m.type = 'table' and m.rootpage > 0 and not l.wr and n.tbl = m.name and n.hidden <> 2
union all
select indexed.root, x.seqno, x.cid = -1 or coalesce(n.yes, 0)
    from indexed join pragma_index_xinfo(indexed.idx, %Q) x
    left join number n on n.tbl = indexed.tbl and n.cid = x.cid
order by 1, 2)";

// number: of the database on its connection.
static bool readStored(sqlite3 *db, int number, KnownValues *known)
{
    sqlite3_stmt *statement = nullptr;
    const char *name = sqlite3_db_name(db, number);
    char *const sql = sqlite3_mprintf(storedSql, name, name, name, name, name);
    if (!sql || sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_free(sql);
        return false;
    }
    sqlite3_free(sql);
    int status;
    while ((status = sqlite3_step(statement)) == SQLITE_ROW)
        known->stored[{number, sqlite3_column_int(statement, 0)}].push_back(
            {sqlite3_column_int(statement, 2) == 0, {}});
    sqlite3_finalize(statement);
    return status == SQLITE_DONE;
}

bool readStored(sqlite3 *db, KnownValues *known)
{
    constexpr int temporary = 1; // its number on each connection
    for (int number = 0; sqlite3_db_name(db, number); ++number)
        if (number != temporary && !readStored(db, number, known))
            return false;
    return true;
}

// ---- registers and rows ----

namespace
{
struct Instruction {
    const struct Meaning *meaning;
    int p1, p2, p3;
    string p4;
};

// What the columns of rows can be.
struct Rows {
    std::vector<Values> columns;
    bool isFree = false; // all of them

    Values at(int index) const
    {
        if (isFree)
            return ANYTHING;
        const auto i = static_cast<size_t>(index);
        return i < columns.size() ? columns[i] : Values();
    }
};

struct Cursor {
    Rows rows;       // that are stored, or that the program puts there
    int record = -1; // the register whose record is its row
    int same = -1;   // the cursor whose rows it shares
};

// Of those that have been set: others hold no text.
using Registers = std::map<int, Values>;

// Instructions behind one another that are entered at the first one alone.
struct Stretch {
    Registers begin;   // what they can hold there
    bool isDue = true; // more than when it was last run
};

struct Machine {
    const KnownValues &known;
    std::map<size_t, Stretch> stretches; // by the first instruction
    Registers *begin = nullptr;          // of this one
    Registers now;                       // those that it has set
    std::map<int, Rows> records;         // of registers that hold a row as one value
    std::map<int, Cursor> cursors;
    std::vector<Values> result;
    bool changed = false;   // what can be read in any stretch
    bool awaits = false;    // a register that nothing has been put into
    bool isSettled = false; // nothing new comes: such a register holds numbers

    const Values &get(int reg)
    {
        const auto found = now.find(reg);
        return found != now.end() ? found->second : (*begin)[reg];
    }
    void add(Values *to, const Values &more)
    {
        changed = to->join(more) || changed;
    }
    void add(Rows *to, const Rows &more)
    {
        if (to->columns.size() < more.columns.size())
            to->columns.resize(more.columns.size());
        for (size_t i = 0; i < more.columns.size(); ++i)
            add(&to->columns[i], more.columns[i]);
        changed = changed || (more.isFree && !to->isFree);
        to->isFree = to->isFree || more.isFree;
    }
    Cursor &cursor(int number)
    {
        while (cursors[number].same >= 0)
            number = cursors[number].same;
        return cursors[number];
    }
    void goTo(Stretch *there)
    {
        for (const auto &[reg, values] : now)
            if (!values.isNumber() && there->begin[reg].join(values))
                there->isDue = true;
        if (&there->begin == begin)
            return;
        for (const auto &[reg, values] : *begin)
            if (!values.isNumber() && !now.contains(reg) && there->begin[reg].join(values))
                there->isDue = true;
    }
};
} // namespace

// ---- instructions ----

static void doNothing(Machine &, const Instruction &)
{
}

template <int Instruction::*REG> static void setNumber(Machine &machine, const Instruction &in)
{
    machine.now[in.*REG] = {};
}

template <int Instruction::*REG> static void setAnything(Machine &machine, const Instruction &in)
{
    machine.now[in.*REG] = ANYTHING;
}

static void setNull(Machine &machine, const Instruction &in)
{
    for (int reg = in.p2; reg <= std::max(in.p2, in.p3); ++reg)
        machine.now[reg] = {};
}

static void setText(Machine &machine, const Instruction &in)
{
    machine.now[in.p2] = {false, {in.p4}};
}

// MORE: registers besides those that p3 tells.
template <int MORE> static void copy(Machine &machine, const Instruction &in)
{
    for (int i = 0; i < in.p3 + MORE; ++i) {
        const Values values = machine.get(in.p1 + i);
        machine.now[in.p2 + i] = values;
        machine.add(&machine.records[in.p2 + i], Rows(machine.records[in.p1 + i]));
    }
}

// p2 is an affinity: NUMERIC, INTEGER and REAL make a number of any text.
static void cast(Machine &machine, const Instruction &in)
{
    if (in.p2 >= 'C' && in.p2 <= 'E')
        machine.now[in.p1] = {};
}

static void openStored(Machine &machine, const Instruction &in)
{
    const auto found = machine.known.stored.find({in.p3, in.p2});
    const bool known = found != machine.known.stored.end();
    machine.add(&machine.cursor(in.p1).rows, known ? Rows{found->second, false} : Rows{{}, true});
}

static void openSame(Machine &machine, const Instruction &in)
{
    Cursor &cursor = machine.cursors[in.p1];
    machine.changed = machine.changed || cursor.same < 0;
    cursor.same = in.p2;
}

static void openRecord(Machine &machine, const Instruction &in)
{
    Cursor &cursor = machine.cursor(in.p1);
    machine.changed = machine.changed || cursor.record < 0;
    cursor.record = in.p2;
}

static void makeRecord(Machine &machine, const Instruction &in)
{
    Rows row;
    for (int i = 0; i < in.p2; ++i)
        row.columns.push_back(machine.get(in.p1 + i));
    machine.add(&machine.records[in.p3], row);
    machine.now[in.p3] = ANYTHING;
}

static void insert(Machine &machine, const Instruction &in)
{
    machine.add(&machine.cursor(in.p1).rows, machine.records[in.p2]);
}

static void takeRow(Machine &machine, const Instruction &in)
{
    const Cursor &cursor = machine.cursor(in.p1);
    Rows &row = machine.records[in.p2];
    machine.add(&row, cursor.rows);
    machine.add(&row, Rows(machine.records[cursor.record]));
    machine.now[in.p2] = ANYTHING;
}

static void takeColumn(Machine &machine, const Instruction &in)
{
    const Cursor &cursor = machine.cursor(in.p1);
    Values values = cursor.rows.at(in.p2);
    values.join(machine.records[cursor.record].at(in.p2));
    machine.now[in.p3] = values;
}

static void giveResult(Machine &machine, const Instruction &in)
{
    for (int i = 0; i < std::min(in.p2, static_cast<int>(machine.result.size())); ++i)
        machine.result[static_cast<size_t>(i)].join(machine.get(in.p1 + i));
}

// ---- functions ----

namespace
{
enum class Returns : uint8_t { NUMBER, ARGUMENT, TEXT, JSON, REPLACED };

struct FunctionRow {
    Returns returns;
    const char *text; // that has all the signs which its results can have
    const char *names;
};
} // namespace

static constexpr FunctionRow functionRows[] = {
    {Returns::NUMBER, "",
     "abs avg ceil ceiling changes count cume_dist dense_rank floor glob instr json_array_length "
     "julianday last_insert_rowid length like mod ntile percent_rank pow power random rank round "
     "row_number sign sqrt sum total total_changes trunc unicode unixepoch"},
    {Returns::ARGUMENT, "", "first_value last_value max min nullif"},
    {Returns::TEXT, "2000-01-31 23:59:59.999", "date datetime time"},
    {Returns::TEXT, "0F", "hex"},
    {Returns::TEXT, "integer", "typeof"},
    {Returns::JSON, "",
     "-> json json_array json_group_array json_group_object json_insert json_object json_patch "
     "json_quote json_remove json_replace json_set"},
    {Returns::REPLACED, "", "replace"},
};

// Text without its <, which a script element cannot hold, stays JSON when it is JSON; a number
// has its own signs and those of what is put into it.
static Values replaced(Machine &machine, const Instruction &in)
{
    const Values &of = machine.get(in.p2);
    const Values &what = machine.get(in.p2 + 1);
    const Values &with = machine.get(in.p2 + 2);
    if (!machine.isSettled && (of.isNumber() || what.isNumber())) {
        machine.awaits = true;
        return {};
    }
    if (of.isNumber()) {
        Values values = {with.isFree, {}};
        for (const string &text : with.texts)
            values.texts.insert("-1.5e+10" + text);
        return values;
    }
    const bool isLess = what.texts == std::set<string>{"<"};
    const bool staysJson =
        !with.isFree && std::none_of(with.texts.begin(), with.texts.end(), [](const string &text) {
            return text.find_first_of("<\"") != string::npos;
        });
    return of.isFree && of.json && isLess && staysJson ? Values{true, {}, JSON_IN_SCRIPT}
                                                       : ANYTHING;
}

// What a function returns: p4 is "NAME(COUNT)", p2 the register of its first argument.
static Values resultOf(Machine &machine, const Instruction &in)
{
    const size_t open = std::min(in.p4.find('('), in.p4.size());
    const string_view name = string_view(in.p4).substr(0, open);
    const auto *row = std::find_if(std::begin(functionRows), std::end(functionRows),
                                   [&](const FunctionRow &f) { return hasWord(f.names, name); });
    if (machine.known.numberFunctions.contains(name))
        return {};
    if (row == std::end(functionRows) || open == in.p4.size())
        return ANYTHING;
    const long count = strtol(in.p4.c_str() + open + 1, nullptr, 10);
    if (row->returns == Returns::NUMBER)
        return {};
    if (row->returns == Returns::TEXT)
        return {false, {row->text}};
    if (row->returns == Returns::JSON)
        return {true, {}, 1};
    if (row->returns == Returns::REPLACED)
        return replaced(machine, in);
    Values values = {count < 0, {}};
    for (int i = 0; i < count; ++i)
        values.join(machine.get(in.p2 + i));
    return values;
}

static void call(Machine &machine, const Instruction &in)
{
    const Values values = resultOf(machine, in);
    machine.now[in.p3] = values;
}

// A step of an aggregate adds to what its last one leaves in the register.
static void takeStep(Machine &machine, const Instruction &in)
{
    Values values = machine.get(in.p3);
    values.join(resultOf(machine, in));
    machine.now[in.p3] = values;
}

static void takeAggregate(Machine &machine, const Instruction &in)
{
    const Values values = machine.get(in.p1);
    machine.now[in.p3] = values;
}

// ---- the program ----

namespace
{
// Where the program goes on: with the next instruction, there or elsewhere, elsewhere, or back to
// where a subroutine or a coroutine has been left.
enum class Jump : uint8_t { NEXT, P2, P2_OR_P3, ANY, ONLY_P2, CALL, BACK, END };

// What instructions do to values.
struct Meaning {
    Jump jump;
    void (*act)(Machine &, const Instruction &);
    const char *names;
};
} // namespace

// A number or null that comes with a jump need not be told: values are never less.
static constexpr Meaning meanings[] = {
    {Jump::P2, doNothing,
     "DecrJumpZero ElseEq Eq Filter Found Ge Gt IdxGE IdxGT IdxLE IdxLT If IfNoHope IfNot "
     "IfNotZero "
     "IfNullRow IfPos Init IsNull Last Le Lt MustBeInt Ne Next NoConflict NotExists NotFound "
     "NotNull Once Prev Rewind RowSetRead RowSetTest SeekGE SeekGT SeekLE SeekLT SeekRowid "
     "SeekScan SequenceTest Sort SorterCompare SorterNext SorterSort VFilter VNext"},
    {Jump::ONLY_P2, doNothing, "Goto"},
    {Jump::CALL, doNothing, "Gosub"},
    {Jump::BACK, doNothing, "EndCoroutine Return Yield"},
    {Jump::END, doNothing, "Halt"},
    {Jump::P2_OR_P3, doNothing, "InitCoroutine"},
    {Jump::ANY, doNothing, "Jump"},
    {Jump::NEXT, doNothing,
     "Affinity AggFinal Close ClrSubtype Compare DeferredSeek Delete Explain FilterAdd FinishSeek "
     "IdxDelete Noop NullRow OpenAutoindex OpenEphemeral Permutation RealAffinity ReleaseReg "
     "ResetSorter RowSetAdd SeekHit SorterOpen TableLock Transaction VOpen"},
    {Jump::NEXT, setNumber<&Instruction::p1>, "AddImm CollSeq MemMax SoftNull"},
    {Jump::NEXT, setNumber<&Instruction::p2>,
     "BeginSubrtn BitNot Count IdxRowid Int64 IntCopy Integer IsTrue NewRowid Not OffsetLimit "
     "Real Rowid Sequence ZeroOrNull"},
    {Jump::NEXT, setNumber<&Instruction::p3>,
     "Add And BitAnd BitOr Divide Multiply Or Remainder ShiftLeft ShiftRight Subtract"},
    {Jump::NEXT, setAnything<&Instruction::p2>, "Blob Variable"},
    {Jump::NEXT, setAnything<&Instruction::p3>, "Concat VColumn"},
    {Jump::NEXT, setNull, "Null"},
    {Jump::NEXT, setText, "String8"},
    {Jump::NEXT, copy<1>, "Copy SCopy"},
    {Jump::NEXT, copy<0>, "Move"},
    {Jump::NEXT, cast, "Cast"},
    {Jump::NEXT, openStored, "OpenRead ReopenIdx"},
    {Jump::NEXT, openSame, "OpenDup"},
    {Jump::NEXT, openRecord, "OpenPseudo"},
    {Jump::NEXT, makeRecord, "MakeRecord"},
    {Jump::NEXT, insert, "IdxInsert Insert SorterInsert"},
    {Jump::NEXT, takeRow, "RowData SorterData"},
    {Jump::NEXT, takeColumn, "Column"},
    {Jump::NEXT, giveResult, "ResultRow"},
    {Jump::NEXT, call, "Function PureFunc"},
    {Jump::NEXT, takeStep, "AggInverse AggStep"},
    {Jump::NEXT, takeAggregate, "AggValue"},
};

// Returns false when the statement cannot be explained, or an instruction is unknown.
static bool readProgram(sqlite3 *db, const string &query, std::vector<Instruction> *program)
{
    sqlite3_stmt *statement = nullptr;
    const string explain = "explain " + query;
    bool known =
        sqlite3_prepare_v2(db, explain.c_str(), -1, &statement, nullptr) == SQLITE_OK && statement;
    while (known && sqlite3_step(statement) == SQLITE_ROW) {
        const auto number = [&](int column) { return sqlite3_column_int(statement, column); };
        const auto text = [&](int column) {
            const auto *bytes = sqlite3_column_text(statement, column);
            return string(bytes ? reinterpret_cast<const char *>(bytes) : "");
        };
        const string name = text(1);
        const auto *meaning =
            std::find_if(std::begin(meanings), std::end(meanings),
                         [&](const Meaning &m) { return hasWord(m.names, name); });
        known = meaning != std::end(meanings);
        program->push_back({meaning, number(2), number(3), number(4), text(5)});
    }
    return sqlite3_finalize(statement) == SQLITE_OK && known;
}

// The instructions that a program comes back to: behind the calls of subroutines; behind the
// switches to coroutines, where these begin, and where they lead when they end. Which of them it is
// stands in a register.
static std::set<size_t> returnsOf(const std::vector<Instruction> &program)
{
    std::set<size_t> points;
    for (size_t i = 0; i < program.size(); ++i) {
        const Instruction &in = program[i];
        const Jump jump = in.meaning->jump;
        if (jump == Jump::CALL || jump == Jump::BACK)
            points.insert(i + 1);
        if (jump == Jump::BACK)
            points.insert(static_cast<size_t>(in.p2));
        if (jump == Jump::P2_OR_P3)
            points.insert(static_cast<size_t>(in.p3));
    }
    return points;
}

// Where the program can go on behind an instruction.
static std::set<size_t> waysBehind(const Instruction &in, size_t at,
                                   const std::set<size_t> &returns)
{
    const auto p1 = static_cast<size_t>(in.p1);
    const auto p2 = static_cast<size_t>(in.p2);
    const auto p3 = static_cast<size_t>(in.p3);
    switch (in.meaning->jump) {
    case Jump::NEXT:
        return {at + 1};
    case Jump::P2:
        return {at + 1, p2};
    case Jump::P2_OR_P3:
        return {at + 1, p2, p3};
    case Jump::ANY:
        return {p1, p2, p3};
    case Jump::ONLY_P2:
    case Jump::CALL:
        return {p2};
    case Jump::BACK:
        return returns;
    case Jump::END:
        break;
    }
    return {};
}

// The instructions that stretches begin with.
static std::set<size_t> beginsOf(const std::vector<std::set<size_t>> &ways)
{
    std::set<size_t> begins;
    for (size_t i = 0; i < ways.size(); ++i)
        if (ways[i] != std::set<size_t>{i + 1}) {
            begins.insert(i + 1);
            begins.insert(ways[i].begin(), ways[i].end());
        }
    return begins;
}

// Whether all that the program puts into cursors are rows that it has made.
static bool recordsAreKnown(const std::vector<Instruction> &program)
{
    std::set<int> records;
    for (const Instruction &in : program) {
        if (in.meaning->act == makeRecord)
            records.insert(in.p3);
        if (in.meaning->act == takeRow)
            records.insert(in.p2);
    }
    return std::all_of(program.begin(), program.end(), [&](const Instruction &in) {
        return in.meaning->act != insert || records.contains(in.p2);
    });
}

// Where each instruction can lead. begins: out, the instructions that stretches begin with.
// isLong: the first begin is that of all of them.
static std::vector<std::set<size_t>> findWays(const std::vector<Instruction> &program, bool isLong,
                                              std::set<size_t> *begins)
{
    const std::set<size_t> returns = returnsOf(program);
    std::vector<std::set<size_t>> ways;
    for (size_t i = 0; i < program.size(); ++i)
        ways.push_back(waysBehind(program[i], i, returns));
    *begins = beginsOf(ways);
    begins->insert(0);
    for (size_t i = 0; isLong && i < program.size(); ++i)
        if (begins->contains(i + 1))
            ways[i] = {0};
    return ways;
}

// Runs it to where the next one begins, and takes what registers hold to where it can lead.
static void runStretch(Machine &machine, const std::vector<Instruction> &program,
                       const std::vector<std::set<size_t>> &ways, size_t first)
{
    machine.now.clear();
    for (size_t i = first; i < program.size(); ++i) {
        program[i].meaning->act(machine, program[i]);
        for (const size_t way : ways[i])
            if (const auto there = machine.stretches.find(way); there != machine.stretches.end())
                machine.goTo(&there->second);
        if (machine.stretches.contains(i + 1))
            return;
    }
}

// Runs all stretches until nothing new comes.
static void settle(Machine &machine, const std::vector<Instruction> &program,
                   const std::vector<std::set<size_t>> &ways, bool isLong)
{
    for (bool isDone = false; !isDone;) {
        isDone = true;
        for (auto &[first, stretch] : machine.stretches) {
            if (!std::exchange(stretch.isDue, false))
                continue;
            isDone = false;
            machine.begin = &(isLong ? machine.stretches[0] : stretch).begin;
            runStretch(machine, program, ways, first);
            if (std::exchange(machine.changed, false) || (isLong && machine.stretches[0].isDue))
                for (auto &[at, other] : machine.stretches)
                    other.isDue = true;
        }
    }
}

std::vector<Values> valuesOf(sqlite3 *db, const KnownValues &known, const string &query,
                             size_t count)
{
    std::vector<Instruction> program;
    if (!readProgram(db, query, &program) || !recordsAreKnown(program))
        return std::vector<Values>(count, ANYTHING);
    const bool isLong = program.size() > LONGEST_PROGRAM;
    std::set<size_t> begins;
    const std::vector<std::set<size_t>> ways = findWays(program, isLong, &begins);
    Machine machine = {known, {}, nullptr, {}, {}, {}, std::vector<Values>(count)};
    for (const size_t begin : begins)
        machine.stretches[begin];
    settle(machine, program, ways, isLong);
    machine.isSettled = true;
    if (machine.awaits) {
        for (auto &[first, stretch] : machine.stretches)
            stretch.isDue = true;
        settle(machine, program, ways, isLong);
    }
    return machine.result;
}
