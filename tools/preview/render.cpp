/* tools/preview/render.cpp - runs a page as the web program would, and finds out why there is
 * none, or why it breaks off. */
#include "render.h"

#include <unistd.h>
#include <algorithm>

using std::string;

// The page's language is that of the request, and stays: a site's own links switch it, as
// they do on the device.
static void keepLanguage(Job &job)
{
    const string *wanted = findField(job.request.fields, "lang");
    const auto &known = job.config.languages;
    if (!wanted || std::find(known.begin(), known.end(), *wanted) == known.end() ||
        *wanted == job.switches.language)
        return;
    job.switches.language = *wanted;
}

static void setVariables(Job &job, Interpreter *interpreter)
{
    for (const auto &[name, value] : job.config.variables)
        traceSet(job.trace, interpreter, name, value, "--set");
    if (!job.switches.language.empty())
        traceSet(job.trace, interpreter, "lang", job.switches.language, "the language switch");
    for (const FormField &field : job.request.fields)
        traceSet(job.trace, interpreter, field.name, field.value,
                 job.request.method == "POST" ? "the form" : "the address");
}

// Takes a message off the trace: the page says it in words of its own, and where it was.
// Returns whether there was one.
static bool takeMessage(Trace &trace, Message id, Trouble &trouble)
{
    const auto found = std::ranges::find_if(
        trace.messages, [id](const TraceMessage &message) { return message.id == id; });
    if (found == trace.messages.end())
        return false;
    trouble.place = found->place;
    trouble.log = found->log;
    trace.messages.erase(found);
    return true;
}

static Trouble withoutPage(Job &job, const string &page)
{
    const auto &templates = job.trace.templates;
    const bool isEmpty = templates.empty() || templates.front().problem.empty();
    Trouble trouble;
    trouble.title = page + (isEmpty ? " is empty" : " cannot be opened");
    trouble.text = isEmpty ? "An empty template makes no page." : templates.front().problem;
    takeMessage(job.trace, Message::CANNOT_MAP, trouble);
    return trouble;
}

// Why a page breaks off. Its cause is the run's last syntax error, if it has told one.
static Trouble brokenOff(Job &job, const string &made)
{
    auto &told = job.trace.messages;
    Trouble trouble;
    trouble.title = "The page breaks off";
    trouble.place = job.trace.stopped;
    trouble.topic = Topic::SYNTAX;
    trouble.page = made;
    const auto last = std::find_if(told.rbegin(), told.rend(), [](const TraceMessage &message) {
        return message.topic == Topic::SYNTAX || message.topic == Topic::MARKS;
    });
    if (last != told.rend() && last->topic == Topic::MARKS)
        trouble.topic = Topic::MARKS;
    if (trouble.topic == Topic::SYNTAX && takeMessage(job.trace, Message::ENDS_INSIDE, trouble)) {
        trouble.text = "The template ends inside a command: its ?> is missing.";
    } else if (last != told.rend()) {
        trouble.text = last->text + ".";
        trouble.hint = last->hint;
        trouble.place = last->place;
        trouble.log = last->log;
        told.erase(std::next(last).base());
    } else {
        trouble.text = "The interpreter gave up here, and the rest of the page is lost.";
        trouble.hint =
            made.empty()
                ? "A command with too many arguments breaks the page off where it is the first "
                  "thing in it. Put quotes around its text, or any page text, such as "
                  "<!DOCTYPE html>, in front."
                : "The usual causes are a command without its ?>, and an argument of more "
                  "than some 10,000 pieces.";
    }
    return trouble;
}

// Answers for a run that was stopped, and ends the process.
static void answerStopped(Job &job, const char *why)
{
    Trace &trace = job.trace;
    Trouble trouble;
    trouble.title = why;
    trouble.place = tracePlace(trace);
    const bool isAsking = !trace.queries.empty() && trace.queries.back().isOpen;
    if (isAsking) {
        TraceQuery &query = trace.queries.back();
        query.problem = "It was not done when the page was stopped.";
        trouble.place = query.place;
        trouble.text = "It waited for the answer to the query: " + query.text;
        trouble.hint = "Look at the query: tables that nothing joins, or a column that is "
                       "compared in each row and has no index, make one slow.";
    } else {
        trouble.text = "It was at the place below.";
        trouble.hint = "A repeat with a very great number, or one within another, is the usual "
                       "cause.";
    }
    _exit(answerTrouble(job, "500 Internal Server Error", trouble));
}

// ---- Marks for translators ----

// Runs the page as it is without marks. Returns whether it can be run.
static bool runPlain(Job &job, Job &plain, const string &page)
{
    static string root; // as in answerTemplate
    string why;
    root = rootFolder(job.work, 0);
    systemRoot = root.c_str();
    plain.trace.stop = [&job](const char *cause) { answerStopped(job, cause); };
    Interpreter *interpreter =
        traceOpen(plain.trace, job.config, &why) ? traceInterpreter(plain.trace) : nullptr;
    if (interpreter) {
        setVariables(plain, interpreter);
        traceRun(plain.trace, interpreter, page);
    }
    return interpreter;
}

// A marked text has blanks and quotes, whatever the text is. So commands can break in which a
// text field stands without quotes: syntax errors that the page does not have without marks.
static void blameMarks(Job &job, const string &page)
{
    const auto isOfSyntax = [](const TraceMessage &one) { return one.topic == Topic::SYNTAX; };
    auto &told = job.trace.messages;
    const bool isWhole = job.trace.result == ORV_RUN_DONE;
    if (job.switches.marks == 0 || (isWhole && std::ranges::none_of(told, isOfSyntax)))
        return;
    Job plain = {job.work, job.config, job.switches, job.generation, job.request, {}, ""};
    if (!runPlain(job, plain, page))
        return;
    const auto isPlain = [&](const TraceMessage &one) {
        return std::ranges::any_of(plain.trace.messages, [&](const TraceMessage &other) {
            return other.id == one.id && other.place.line == one.place.line;
        });
    };
    static constexpr char text[] = "The marks for translators break this command";
    static constexpr char hint[] =
        "A marked text has blanks and quotes in it: put the text field between quotes that it does "
        "not stand in yet, or switch Marks off.";
    bool isBlamed = false;
    for (TraceMessage &one : told) {
        if (!isOfSyntax(one) || isPlain(one))
            continue;
        one.text = text;
        one.hint = hint;
        one.topic = Topic::MARKS;
        isBlamed = true;
    }
    if (!isWhole && !isBlamed && plain.trace.result == ORV_RUN_DONE)
        told.push_back({ORV_LOG_ERROR, job.trace.stopped, text, hint, Topic::MARKS});
}

int answerTemplate(Job &job, const string &page)
{
    static string root; // systemRoot must outlive the interpreter
    keepLanguage(job);
    root = rootFolder(job.work, job.switches.marks);
    systemRoot = root.c_str();
    if (!job.switches.error.empty())
        job.trace.error = job.switches.error.c_str();
    Interpreter *interpreter = traceInterpreter(job.trace);
    if (!interpreter)
        return answerTrouble(job, "500 Internal Server Error",
                             {"Out of memory", "There was none to make the page."});
    job.trace.stop = [&job](const char *cause) { answerStopped(job, cause); };
    setVariables(job, interpreter);
    const string made = traceRun(job.trace, interpreter, page);
    blameMarks(job, page);
    if (job.trace.result == ORV_RUN_NO_TEMPLATE)
        return answerTrouble(job, "500 Internal Server Error", withoutPage(job, page));
    if (job.trace.result != ORV_RUN_DONE)
        return answerTrouble(job, "500 Internal Server Error", brokenOff(job, made));
    job.headers += "Server-Timing: orv-rendered\r\n"; // tells the bar what made it
    if (kindOfFile(page) == FolderEntry::FILE)        // no page that a bar could stand in
        return answer(job, "200 OK", typeOf(page), made);
    return answerPage(job, "200 OK", made, page);
}
