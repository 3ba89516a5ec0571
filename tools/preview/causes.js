/* tools/preview/causes.js - one entry for each mistake: what the run has reported, and what
 * orv-check has found there, which knows the cause better. */

// The kinds of findings that can be the cause of a message of a topic.
const causes = {
    syntax: /^(syntax|gives-up|swallowed|quote|end-in-text|limit|text-breaks)/,
    include: /^include-/,
    text: /^text-/,
    value: /^(value|query|variable|calc|repeat)-/,
    query: /^query-/,
    marks: /^text-breaks/,
    markup: /^(quote|escape-context|html-open)/
};

const isBefore = (a, b) => a.line < b.line || (a.line === b.line && (a.column || 0) < (b.column || 0));

// Whether a finding stands in the command that a message is about.
const isInside = (finding, message) => message.endLine
    ? !isBefore(finding, message)
        && isBefore(finding, {line: message.endLine, column: message.endColumn})
    : finding.line === message.line;

const isAt = (place, message) => place.file === message.file && place.line === message.line
    && place.column === message.column;

const best = (findings) => findings.find((one) => one.severity === 'error') || findings[0];

/* The finding that tells the cause of a message, undefined for none. Of syntax, the effect of a
 * mistake can show far behind it, so that the nearest mistake in front is the cause; but what has
 * no end is reported where it begins, which the finding notes. */
const causeOf = (message, findings) => {
    const fitting = findings.filter((one) => one.file === message.file
        && causes[message.topic]?.test(one.id));
    const there = fitting.find((one) => isAt(one, message)) || (message.topic === 'syntax'
        && fitting.find((one) => one.notes.some((note) => isAt(note, message))));
    const inside = there || best(fitting.filter((one) => isInside(one, message)));
    if (message.topic === 'markup') // what is open at the end may have been opened anywhere
        return best(fitting);
    if (inside || message.topic !== 'syntax')
        return inside;
    return best(fitting.filter((one) => one.line === message.line))
        || fitting.filter((one) => !isBefore(message, one)).pop();
};

const severities = ['error', 'warning', 'notice'];
const rank = (severity) => severities.indexOf(severity);

const addMessage = (entry, message) => {
    entry.isMet = true;
    entry.times = Math.max(entry.times, message.times);
    if (rank(message.severity) < rank(entry.severity))
        entry.severity = message.severity;
    if (message.log)
        entry.logs.push(message.log);
};

const isUsed = (finding) => page.data.templates.some((one) => one.file === finding.file);
// A hint of orv-check's is called a notice in the bar.
const allFindings = () => (page.data?.findings?.findings || []).map((finding) =>
    ({...finding, severity: finding.severity === 'hint' ? 'notice' : finding.severity}));

/* The entries of the page, the gravest first: {severity, file, line, column, text, hint, times,
 * logs, notes, id, source, isMet}. The first of a page that breaks off tells why. */
const entries = () => {
    const {messages, trouble} = page.data;
    const found = allFindings().filter(isUsed).map((finding) =>
        ({...finding, hint: '', times: 1, logs: []}));
    const alone = [];
    messages.forEach((message, i) => {
        const cause = causeOf(message, found);
        const isFirst = trouble && i === 0;
        if (cause) {
            addMessage(cause, message);
            cause.isFirst ||= isFirst;
        } else {
            alone.push({...message, logs: message.log ? [message.log] : [], notes: [],
                isMet: true, isFirst});
        }
    });
    const order = (entry) => [entry.isFirst ? 0 : 1, rank(entry.severity), entry.isMet ? 0 : 1];
    return [...alone, ...found].map((entry, i) => [order(entry), i, entry])
        .sort(([a, i], [b, j]) => a[0] - b[0] || a[1] - b[1] || a[2] - b[2] || i - j)
        .map(([, , entry]) => entry);
};

/* Through which templates an included file has come into the page: places of includes. */
const chainOf = (file) => {
    const {templates} = page.data;
    const chain = [];
    let one = templates.find((template) => template.file === file);
    while (one && one.parent >= 0) {
        chain.push(one.place);
        one = templates[one.parent];
    }
    return chain;
};
