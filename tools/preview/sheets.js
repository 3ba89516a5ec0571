/* tools/preview/sheets.js - what the sheets of the bar show, each of what the run has told. */

const messages = () => {
    const all = entries();
    return all.length > 0 ? all.map(entryOf)
        : paragraph('none', 'Nothing to report: every command of this page did what it was asked.');
};

/* ---- Queries ---- */

const slow = 50000; // microseconds; a device takes several times as long

const nullText = () => span('null', 'NULL');

const rowsOf = (query) => {
    if (query.problem)
        return paragraph('text', query.problem);
    if (query.sample.length === 0)
        return paragraph('none', query.rows ? 'Only counted.' : 'No rows.');
    const numbers = '123456789abcdefghijklmnopqrstuvwxyz';
    const heads = ['$0', ...query.sample[0].map((_, i) =>
        `$${numbers[i]}${query.columns[i] ? ` ${query.columns[i]}` : ''}`)];
    const rest = query.rows - query.sample.length;
    return make('div', {className: 'rows code', tabIndex: 0},
        table(heads, query.sample.map((row, i) =>
            [String(i), ...row.map((cell) => cell === null ? nullText() : cell)])),
        rest > 0 ? paragraph('none', `and ${plural(rest, 'more row', 'more rows')}`) : null);
};

const parametersOf = (query) => query.parameters.length === 0 ? null
    : table(['Parameter', 'Value', 'Set by'], query.parameters.map((one) => [code(one.name),
        one.value === null ? nullText() : one.value === '' ? span('soft', 'empty') : code(one.value),
        one.by]));

// What is to be looked at in a query, each with its reason.
const marksOf = (query) => {
    const same = page.data.queries.filter((other) =>
        other.text === query.text && !other.repeated).length;
    return [
        query.repeated && ['again', 'An include stands in its body: the command ran again behind it.'],
        !query.repeated && same > 1 && [`asked ${same} times`,
            'The page asks this with the same text more than once: a variable could keep the answer.'],
        query.microseconds >= slow && ['slow', 'A device takes several times as long as this machine.']
    ].filter(Boolean);
};

const queryOf = (query) => make('details', {className: query.problem ? 'error' : ''},
    make('summary', {}, code(query.text, 'query'),
        ...marksOf(query).map(([text, why]) => span('marked', text, why)),
        span('soft at', textOf(query.place)),
        span('', query.problem ? 'failed' : plural(query.rows, 'row', 'rows')),
        span('soft', time(query.microseconds))),
    paragraph('hint', placeOf(query.place)), parametersOf(query), rowsOf(query));

const queries = () => {
    const all = page.data.queries;
    if (all.length === 0)
        return paragraph('none', 'This page asks for no data.');
    const total = all.reduce((sum, query) => sum + query.microseconds, 0);
    return [paragraph('sum', `${plural(all.length, 'query', 'queries')} in ${time(total)}. `
        + 'Open one to see its rows.'), ...all.map(queryOf)];
};

/* ---- Others ---- */

const templates = () => {
    const all = page.data.templates;
    if (all.length === 0)
        return paragraph('none', 'No template was read.');
    const depth = [];
    all.forEach((one, i) => {
        depth[i] = one.parent < 0 ? 0 : depth[one.parent] + 1;
    });
    const name = (one, i) =>
        code('\u00a0'.repeat(4 * depth[i]) + (depth[i] ? '└ ' : '') + one.path);
    return table(['Template', 'Included in', '>Time, with its own includes'],
        all.map((one, i) => [name(one, i), one.parent < 0 ? span('soft', 'the page')
            : placeOf(one.place), one.problem || time(one.microseconds)]));
};

const variables = () => page.data.variables.length === 0
    ? paragraph('none', 'No variable was set.')
    : table(['Variable', 'Value', 'Set by'], page.data.variables.map((variable) => [
        code(variable.name),
        variable.value === '' ? span('soft', 'empty') : code(variable.value),
        make('span', {}, variable.by || placeOf(variable.place),
            variable.kept ? span('soft', ' (it kept its former value)') : null)]));

const texts = () => {
    const {texts: lacking, textCount} = page.data;
    const found = lacking.length
        ? `${plural(lacking.length, 'text', 'texts')} that the language lacks:`
        : 'all of them found.';
    const sum = paragraph('sum', textCount === 0 ? 'This page has no text fields.'
        : `${plural(textCount, 'text field', 'text fields')}, ${found}`);
    return lacking.length === 0 ? sum : [sum,
        table(['Text', 'Used in', 'What the page shows'], lacking.map((text) => [
            code(`{?${text.id}?}`), placeOf(text.place),
            text.missing ? 'nothing: no language has it' : 'the text of the fallback']))];
};

const elsewhere = () => allFindings().filter((finding) => !isUsed(finding));

const site = () => {
    const {findings, checks} = page.data;
    if (!checks)
        return paragraph('none', 'orv-check, which looks at the whole site, is not installed.');
    if (!findings)
        return paragraph('none', 'orv-check is at work.');
    if (findings.problem)
        return paragraph('text', `orv-check has found nothing out: ${findings.problem}`);
    const all = elsewhere();
    return all.length > 0
        ? [paragraph('sum', 'In templates that this page does not use:'), ...all.map(entryOf)]
        : paragraph('none', 'orv-check finds nothing wrong in what this page does not use.');
};

const count = (list, severity) => list.filter((item) => item.severity === severity).length;
const worst = (list) => ['error', 'warning'].find((severity) => count(list, severity)) || '';

// One row a sheet: what fills it, the list that is counted, and how bad that is.
const sheets = [
    ['messages', 'Messages', messages, entries, worst],
    ['queries', 'Queries', queries, () => page.data.queries,
        (list) => list.some((query) => query.problem) ? 'error'
            : list.some((query) => marksOf(query).some(([text]) => text !== 'again')) ? 'warning' : ''],
    ['templates', 'Includes', templates, () => page.data.templates,
        (list) => list.some((one) => one.problem) ? 'error' : ''],
    ['variables', 'Variables', variables, () => page.data.variables, () => ''],
    ['texts', 'Texts', texts, () => page.data.texts,
        (list) => list.some((text) => text.missing) ? 'warning' : ''],
    ['site', 'Other pages', site, elsewhere, () => '']
].map(([id, title, fill, list, severity]) => ({id, title, fill, list, severity}));
