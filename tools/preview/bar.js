/* tools/preview/bar.js - the bar at the foot of a page.
 *
 * It lives in a shadow root, and takes its own elements out of the page at once. It works
 * under any policy of the page: no markup is parsed, the style is not in the document, and
 * what brings the changes is opened before a policy is in force (then it is kept, since no
 * second one would be allowed).
 *
 * The page can be scrolled clear of it: its element is as high as what it shows, and stands at
 * the end of the document. */

const found = (selector) => page.host.shadowRoot.querySelector(selector);

/* ---- The switches ---- */

const change = (name, value) => {
    remember({switches: {...recall().switches, [name]: value}, tries: 0});
    reload();
};

const choice = (name, title, options, chosen) => make('label', {}, title,
    make('select', {id: name, onchange: (event) => change(name, event.target.value)},
        options.map(([value, text]) =>
            make('option', {value, selected: value === chosen}, text))));

// What is switched counts, also while its page is still on its way.
const errorOf = () => (recall().switches || page.data).error;

// Of what was typed before a reload the browser tells no change.
const takeError = ({target: {value}}) => {
    if (value !== errorOf())
        change('error', value);
};

const switches = () => {
    const {languages, language, marks, error} = page.data;
    return make('div', {className: 'switches'},
        languages.length ? choice('language', 'Language',
            [['', 'default'], ...languages.map((name) => [name, name])], language) : null,
        choice('marks', 'Marks', [['0', 'off'], ['1', 'as tooltips'], ['2', 'everywhere']],
            String(marks)),
        make('label', {}, 'Error', make('input', {value: error, placeholder: 'none', id: 'error',
            title: 'What the page\'s error commands find. Enter shows it.',
            onblur: takeError,
            onkeydown: (event) => {
                if (event.key === 'Enter' && !event.isComposing)
                    takeError(event);
            }})));
};

/* ---- The panel ---- */

const close = () => {
    remember({open: false});
    show();
    found('#badge').focus();
};

// A field that goes with a text of its own would take that for meant.
const onKey = (event) => {
    if (event.key !== 'Escape' || event.isComposing)
        return;
    found('#error').value = errorOf();
    close();
};

const numberOf = (one) =>
    span(`number ${one.severity(one.list())}`, String(one.list().length));

const choose = (one) => {
    remember({tab: one.id});
    show();
    found(`#${one.id}`).focus();
};

const tabOf = (one, chosen) => make('button',
    {role: 'tab', type: 'button', id: one.id, 'aria-selected': String(one === chosen),
        'aria-controls': 'sheet', tabIndex: one === chosen ? 0 : -1, onclick: () => choose(one)},
    one.title, numberOf(one));

// The keys of a row of tabs.
const onTabKey = (event) => {
    const at = sheets.findIndex(({id}) => id === event.target.id);
    const next = {ArrowRight: at + 1, ArrowLeft: at - 1, Home: 0, End: -1}[event.key];
    if (next === undefined || at < 0)
        return;
    event.preventDefault();
    choose(sheets.at(next % sheets.length));
};

// The height of the panel, in hundredths of the window's.
const lowest = 20;
const highest = 95;
const heightOf = () => recall().height || 46;
const setHeight = (height) => {
    const set = Math.round(Math.min(Math.max(height, lowest), highest));
    remember({height: set});
    found('.panel').style.height = `${set}vh`;
    found('.grip').setAttribute('aria-valuenow', set);
};

const grip = () => make('div', {className: 'grip', role: 'separator', tabIndex: 0, id: 'grip',
    title: 'Drag, or press the arrow keys: makes the panel taller or lower',
    'aria-label': 'Height of the panel', 'aria-orientation': 'horizontal',
    'aria-valuemin': lowest, 'aria-valuemax': highest, 'aria-valuenow': heightOf(),
    onkeydown: (event) => {
        const step = {ArrowUp: 8, ArrowDown: -8, Home: highest, End: -highest}[event.key];
        if (step)
            setHeight(heightOf() + step);
        if (step)
            event.preventDefault();
    },
    onpointerdown: (event) => event.target.setPointerCapture(event.pointerId),
    onpointermove: (event) => event.target.hasPointerCapture(event.pointerId)
        && setHeight(100 * (innerHeight - event.clientY) / innerHeight)});

const summary = () => {
    const {data} = page;
    return span('soft', `${data.page ? `${data.page}: ` : ''}${size(data.bytes)} in `
        + `${plural(data.writes, 'write call', 'write calls')}, ${time(data.microseconds)}`,
    'Each piece of a page is a write call of its own, unless the web program gathers them.');
};

const endText = () => page.isOver ? 'Preview has ended' : '';

const panel = (chosen) => make('section',
    {className: `panel ${worst(entries())}`, 'aria-label': 'orv-preview', onkeydown: onKey},
    grip(),
    make('div', {className: 'top'},
        make('div', {className: 'tabs', role: 'tablist', 'aria-label': 'Sheets',
            onkeydown: onTabKey}, sheets.map((one) => tabOf(one, chosen))),
        make('button', {className: 'close', type: 'button', title: 'Close (Escape)',
            id: 'close', 'aria-label': 'Close', onclick: close}, '✕')),
    make('div', {className: 'under'},
        make('div', {className: 'second'}, summary(), switches(),
            make('span', {className: 'status', role: 'status'}, endText())),
        make('div', {className: 'sheet', role: 'tabpanel', id: 'sheet', tabIndex: 0,
            'aria-labelledby': chosen.id}, chosen.fill())));

/* ---- The badge ---- */

const openAt = (tab) => () => {
    remember(tab ? {open: true, tab} : {open: true});
    show();
    found('[aria-selected=true]').focus();
};

// It comes back with the next page.
const putAway = () => {
    page.isAway = true;
    show();
};

const badge = () => {
    const all = entries();
    const kind = worst(all);
    const [first] = all;
    const said = [['error', 'errors'], ['warning', 'warnings']]
        .map(([one, many]) => [count(all, one), one, many])
        .filter(([number]) => number).map((words) => plural(...words)).join(', ');
    return make('div', {className: ['badge', kind, endText() && 'over'].filter(Boolean).join(' ')},
        make('button', {className: 'open', type: 'button', id: 'badge',
            title: 'What the templates of this page did', onclick: openAt(kind && 'messages')},
        kind ? span('count', said) : span('dot', ''),
        span('where', kind ? `${textOf(first)} ${first.text}`.trim() : endText() || 'Preview'),
        kind ? span('more', endText() || 'Show')
            : page.data.page ? span('soft', time(page.data.microseconds)) : null),
        make('button', {className: 'away', type: 'button', id: 'away', onclick: putAway,
            'aria-label': 'Put away', title: 'Put away until the next page is loaded'}, '✕'));
};

/* ---- The bar ---- */

// Scrolls long lines of templates to the spot that is marked.
const showMarks = (root) => root.querySelectorAll('.source mark').forEach((mark) => {
    const lines = mark.closest('.source');
    const {left, right} = mark.getBoundingClientRect();
    const box = lines.getBoundingClientRect();
    if (right > box.right)
        lines.scrollLeft += left - box.left - box.width / 2;
});

// Where boxes of the document's own stand side by side, one more would move them.
const makeRoom = () => {
    const {host} = page;
    const shown = found('.bar').firstElementChild;
    const isInRow = /flex|grid/.test(getComputedStyle(document.documentElement).display);
    host.style.setProperty('--orv-position', isInRow ? 'absolute' : 'static');
    host.style.setProperty('--orv-room', shown ? `${Math.ceil(
        innerHeight - shown.getBoundingClientRect().top)}px` : '0px');
};

// Puts other elements into one of the bar's, and gives the focus back to what has the same id
// or tells the same place.
const refill = (element, ...children) => {
    const root = page.host.shadowRoot;
    const former = root.activeElement;
    element.replaceChildren(...children);
    if (!former || former.isConnected)
        return;
    const isSame = (place) => place.textContent === former.textContent;
    (former.id ? found(`#${former.id}`)
        : [...root.querySelectorAll('.place')].find(isSame) || found('#sheet'))?.focus();
};

const show = () => {
    if (!page.host)
        return;
    const {open, tab} = recall();
    const chosen = sheets.find((one) => one.id === tab) || sheets[0];
    refill(page.host.shadowRoot, make('div', {className: 'bar'},
        page.isAway ? null : open ? panel(chosen) : badge()));
    if (isPanel())
        found('.panel').style.height = `${heightOf()}vh`;
    sizes.disconnect();
    if (!page.isAway)
        sizes.observe(found('.bar').firstElementChild);
    makeRoom();
    showMarks(page.host.shadowRoot);
};

const sizes = new ResizeObserver(() => page.host && makeRoom());

const isPanel = () => page.host && found('.panel') !== null;

// What is typed, open or has the focus stays.
const showStatus = (text) => {
    found('.status').textContent = text;
};

const showEnd = () => {
    if (isPanel())
        showStatus(endText());
    else
        show();
};

const showOpened = (problem) => {
    if (isPanel())
        showStatus(problem || 'Opened in the editor.');
};

// A page that tells why it breaks off tells it as the bar does.
const showCause = () => {
    const [first] = page.data.trouble ? entries() : [];
    if (!first || !first.id)
        return;
    document.querySelector('.what').textContent = first.text;
    document.querySelector('main > .hint')?.remove();
    document.querySelector('figcaption').textContent =
        `${first.file}, line ${first.line}, column ${first.column}`;
    document.querySelector('figure .source').replaceChildren(...first.source.map((line) =>
        make('li', {className: line.number === first.line ? 'here' : '', value: line.number},
            make('code', {}, ...(line.number === first.line ? markedLine(line, first)
                : [line.text])))));
    showMarks(document.querySelector('figure'));
};

const showFindings = () => {
    if (!page.host)
        return;
    showCause();
    if (!isPanel()) {
        show();
        return;
    }
    found('.panel').className = `panel ${worst(entries())}`;
    for (const one of sheets) {
        const tab = found(`#${one.id}`);
        tab.lastChild.replaceWith(numberOf(one));
        if (tab.getAttribute('aria-selected') === 'true' && ['messages', 'site'].includes(one.id))
            refill(found('.sheet'), ...[one.fill()].flat());
    }
    showMarks(page.host.shadowRoot);
};

/* ---- The page ---- */

const makeHost = () => {
    page.host = document.createElement('orv-preview');
    const sheet = new CSSStyleSheet();
    sheet.replaceSync(style);
    page.host.attachShadow({mode: 'open'}).adoptedStyleSheets = [sheet];
    document.documentElement.append(page.host);
};

const begin = () => {
    const report = document.getElementById('orv-preview');
    if (report) {
        page.data = JSON.parse(report.textContent);
        report.remove();
        page.known = page.data.generation;
        const isLate = takeSwitches();
        showSwitches();
        makeHost();
        show();
        showCause();
        const kept = takeKept();
        if (kept) {
            const focused = restore(kept);
            if (focused)
                found(`#${focused}`)?.focus({preventScroll: true});
            addEventListener('load', () => restoreScroll(kept));
        }
        if (isLate)
            reload();
    }
    page.isThere = true;
    if (page.state)
        take(page.state);
};

findWorker();
listen();
if (document.getElementById('orv-preview') || document.readyState !== 'loading')
    begin();
else
    addEventListener('DOMContentLoaded', begin);
addEventListener('beforeunload', onLeaving);
addEventListener('pagehide', onLeft);
addEventListener('pageshow', (event) => event.persisted && listen());
for (const sign of ['focus', 'keydown', 'pointerdown']) // that this is the tab in use
    addEventListener(sign, showSwitches, true);
document.addEventListener('visibilitychange', onVisibility);
