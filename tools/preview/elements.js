/* tools/preview/elements.js - the pieces of which the bar is made. No markup is parsed: so it
 * works under any policy of the page. */

const make = (tag, properties, ...children) => {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(properties || {}))
        if (name in element)
            element[name] = value;
        else
            element.setAttribute(name, value);
    element.append(...children.flat().filter((child) => child !== null && child !== ''));
    return element;
};

const time = (microseconds) => microseconds < 1000 ? `${microseconds} µs`
    : `${(microseconds / 1000).toFixed(microseconds < 10000 ? 1 : 0)} ms`;
const size = (bytes) => bytes < 1000 ? `${bytes} bytes`
    : bytes < 1e6 ? `${(bytes / 1000).toFixed(1)} KB` : `${(bytes / 1e6).toFixed(1)} MB`;
const plural = (count, one, many) => `${count} ${count === 1 ? one : many}`;
const paragraph = (className, ...text) => make('p', {className}, ...text);
const span = (className, text, title = '') => make('span', {className, title}, text);
const code = (text, className = '') => make('code', {className}, text);

const textOf = ({file, line, column}) =>
    file ? file + (line ? `:${line}` : '') + (line && column ? `:${column}` : '') : '';

/* A place, which the author's editor opens at a click; null where there is none. */
const placeOf = (place, className = 'place') => {
    const {editor, root} = page.data;
    const text = textOf(place);
    if (!text)
        return null;
    if (!editor)
        return make('code', {className,
            title: 'With --editor COMMAND a click opens this in your editor.'}, text);
    const title = 'Open in the editor';
    if (editor !== 'program') {
        const path = place.file.startsWith('/') ? place.file : `${root}/${place.file}`;
        return make('a', {className, title, href: editor.replace('{line}', place.line || 1)
            .replace('{column}', place.column || 1)
            .replace('{file}', () => encodeURI(path).replace(/[?#]/g, encodeURIComponent))}, text);
    }
    return make('button', {className, title, type: 'button', onclick: () => openPlace(
        {file: place.file, line: place.line || 1, column: place.column || 1})}, text);
};

// So many characters of a line of UTF-8 are the first bytes of it.
const charactersOf = (text, bytes) => {
    let characters = 0;
    for (const character of text) {
        const number = character.codePointAt(0);
        bytes -= number < 0x80 ? 1 : number < 0x800 ? 2 : number < 0x10000 ? 3 : 4;
        if (bytes < 0)
            break;
        characters += character.length;
    }
    return characters;
};

// A line with the spot marked; columns count the bytes of the whole line, from 1. A word is
// marked whole: SQLite tells where it begins.
const markedLine = ({text, cut}, place) => {
    if (!place.column)
        return [text];
    const from = charactersOf(text, place.column - 1 - cut);
    let to = place.endLine === place.line && place.endColumn > place.column
        ? charactersOf(text, place.endColumn - 1 - cut) : text.length;
    while (to < text.length && /\w\w/.test(text.slice(to - 1, to + 1)))
        ++to;
    return [text.slice(0, from), make('mark', {}, text.slice(from, to)), text.slice(to)];
};

const sourceLines = (lines, place) => !lines || lines.length === 0 ? null
    : make('div', {className: 'source code'}, lines.map((line) => {
        const isHere = line.number === place.line;
        return make('div', {className: isHere ? 'here' : ''}, make('b', {}, String(line.number)),
            make('span', {}, ...(isHere ? markedLine(line, place) : [line.text])));
    }));

const entryOf = (entry) => {
    const chain = chainOf(entry.file).map((place) => textOf(place));
    const details = [...(entry.notes || []).map((note) =>
        paragraph('hint', placeOf(note), ` ${note.text}`)),
    chain.length ? paragraph('hint', `Included at ${chain.join(', which is included at ')}`) : null,
    entry.logs?.length || entry.id ? paragraph('log', [entry.id ? `[${entry.id}]` : '',
        ...[...new Set(entry.logs || [])]].filter(Boolean).join(' · ')) : null];
    return make('div', {className: `entry ${entry.severity}`},
        span('kind', entry.severity), placeOf(entry), span('text', entry.text),
        entry.times > 1 ? span('times', `${entry.times} times`) : null,
        entry.hint ? paragraph('hint', entry.hint) : null, sourceLines(entry.source, entry),
        ...details);
};

// A head that begins with '>' is that of a column of numbers.
const table = (heads, rows) => {
    const className = (i) => heads[i].startsWith('>') ? 'size' : '';
    const head = heads.map((text, i) =>
        make('th', {className: className(i), scope: 'col'}, text.replace('>', '')));
    const body = rows.map((row) => make('tr', {}, row.map((cell, i) =>
        make('td', {className: className(i)}, cell))));
    return make('table', {}, make('thead', {}, make('tr', {}, head)), make('tbody', {}, body));
};
