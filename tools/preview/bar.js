/* tools/preview/bar.js - the bar at the foot of a page: what the run of its templates did,
 * and the reload when a file changes.
 *
 * It lives in a shadow root, and takes its own elements out of the page at once. It works
 * under any policy of the page: no markup is parsed, the style is not in the document, and
 * what brings the changes is opened before a policy is in force (then it is kept, since no
 * second one would be allowed).
 *
 * A browser has few connections to one server, and an event stream takes one for as long as
 * it lasts. So all pages have one together: this script is also the worker that they share,
 * which has the stream. Where a browser has no such workers, each page has its own. */
(() => {
    'use strict';

    /* Follows the stream of changes. Calls take with all that is known, {generation,
     * findings, isOver}, whenever some of it comes; what has not come yet is undefined.
     * Returns a function that ends it. */
    const follow = (address, take) => {
        const pause = 2000; // milliseconds after which a stream that was refused is tried again
        let state = {isOver: false};
        let source = null;
        let timer = 0;
        const change = (changes) => {
            state = {...state, ...changes};
            take(state);
        };
        const open = () => {
            source = new EventSource(address);
            source.addEventListener('generation', (event) =>
                change({generation: event.data, isOver: false}));
            source.addEventListener('findings', (event) =>
                change({findings: JSON.parse(event.data)}));
            source.addEventListener('error', () => {
                change({isOver: state.generation !== undefined});
                if (source.readyState === EventSource.CLOSED)
                    timer = setTimeout(open, pause);
            });
        };
        open();
        return () => {
            clearTimeout(timer);
            source.close();
        };
    };

    /* ---- The worker ---- */

    // A page says true when it begins to listen, and false when it is left.
    const serve = () => {
        const pages = new Set();
        let state = null;
        self.onconnect = ({ports: [page]}) => {
            page.onmessage = ({data: listens}) => {
                if (listens)
                    pages.add(page);
                else
                    pages.delete(page);
                if (listens && state)
                    page.postMessage(state);
            };
        };
        follow(new URL('events', location), (now) => {
            state = now;
            pages.forEach((page) => page.postMessage(state));
        });
    };

    if (typeof document === 'undefined') {
        serve();
        return;
    }

    const style = '@STYLE@';
    const own = new URL('.', document.currentScript.src).href;
    document.currentScript.remove();

    let data = null; // what the run did; null on a page that was stopped
    let host = null;
    let worker = null;        // null where there is none
    let stopFollowing = null; // ends the page's own stream; null while there is none
    let known = null;         // generation of the files that the page shows
    let isOver = false;
    let isStale = false;   // the page is to be loaded again
    let isLeaving = false; // another page is on its way

    /* ---- What lasts over a reload ---- */

    const storeKey = 'orv-preview';
    const recall = () => {
        try {
            return JSON.parse(sessionStorage.getItem(storeKey)) || {};
        } catch {
            return {};
        }
    };
    const remember = (changes) => {
        try {
            sessionStorage.setItem(storeKey, JSON.stringify({...recall(), ...changes}));
        } catch {
            // The bar is closed after a reload, then.
        }
    };
    const address = () => location.pathname + location.search;

    const restoreScroll = () => {
        const {scroll} = recall();
        if (scroll && scroll.address === address())
            scrollTo({left: scroll.x, top: scroll.y, behavior: 'instant'});
    };

    /* ---- Reload ---- */

    // A page that is not seen is loaded again when it is, and none instead of the page that
    // a link leads to.
    const reload = () => {
        isStale = true;
        if (document.hidden || isLeaving)
            return;
        remember({scroll: {address: address(), x: scrollX, y: scrollY}});
        if (data && data.posted)
            location.replace(address()); // the form is not sent again
        else
            location.reload();
    };

    const reloadIfStale = () => isStale && reload();

    // What the link leads to may be no page.
    const onLeaving = () => {
        isLeaving = true;
        setTimeout(() => {
            isLeaving = false;
            reloadIfStale();
        }, 5000);
    };

    const take = (state) => {
        if (isOver !== state.isOver) {
            isOver = state.isOver;
            showBadge();
        }
        if (state.generation !== undefined && !isOver) {
            if (known !== null && state.generation !== known)
                return reload();
            known = state.generation;
        }
        if (!data || state.findings === undefined
            || JSON.stringify(state.findings) === JSON.stringify(data.findings))
            return;
        data.findings = state.findings;
        showFindings();
    };

    const listen = () => {
        if (data && !data.reloads)
            return;
        if (worker)
            worker.port.postMessage(true);
        else if (!stopFollowing)
            stopFollowing = follow(own + 'events', take);
    };

    const stopListening = () => {
        if (worker)
            worker.port.postMessage(false);
        if (stopFollowing)
            stopFollowing();
        stopFollowing = null;
    };

    // Firefox asks for trusted types before the page's policy that does is in force.
    const trusted = (address) => {
        try {
            return trustedTypes.createPolicy('orv-preview', {createScriptURL: (text) => text})
                .createScriptURL(address);
        } catch {
            return address;
        }
    };

    const findWorker = () => {
        try {
            worker = new SharedWorker(trusted(own + 'bar.js'), 'orv-preview');
        } catch {
            return; // this browser has none
        }
        worker.port.onmessage = (event) => take(event.data);
        worker.onerror = () => {
            worker = null;
            listen();
        };
    };

    // Pages in the background give a connection of their own back.
    const onVisibility = () => {
        if (!document.hidden)
            reloadIfStale();
        if (worker || (data && data.policy))
            return;
        if (document.hidden)
            stopListening();
        else
            listen();
    };

    /* ---- Elements ---- */

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
    const placeOf = (file, line) => file ? file + (line ? `:${line}` : '') : '';
    const plural = (count, one, many) => `${count} ${count === 1 ? one : many}`;
    const paragraph = (className, text) => make('p', {className}, text);
    const span = (className, text, title = '') => make('span', {className, title}, text);
    const code = (text, className = '') => make('code', {className}, text);

    const sourceLines = (lines, here) => lines.length === 0 ? null
        : make('div', {className: 'source code'}, lines.map((line) =>
            make('div', {className: line.number === here ? 'here' : ''},
                make('b', {}, String(line.number)), line.text)));

    const entry = (severity, place, text, times, hint, source) =>
        make('div', {className: `entry ${severity}`},
            span('kind', severity), place && code(place, 'place'), span('text', text),
            times > 1 ? span('times', `${times} times`) : null,
            hint ? paragraph('hint', hint) : null, source);

    // A head that begins with '>' is that of a column of numbers.
    const table = (heads, rows) => {
        const className = (i) => heads[i].startsWith('>') ? 'size' : '';
        const head = heads.map((text, i) =>
            make('th', {className: className(i)}, text.replace('>', '')));
        const body = rows.map((row) => make('tr', {}, row.map((cell, i) =>
            make('td', {className: className(i)}, cell))));
        return make('table', {}, make('thead', {}, make('tr', {}, head)), make('tbody', {}, body));
    };

    /* ---- The sheets ---- */

    const messages = () => data.messages.length === 0
        ? paragraph('none', 'Nothing to report: every command of this page did what it was asked.')
        : data.messages.map((m) => entry(m.severity, placeOf(m.file, m.line), m.text, m.times,
            m.hint, sourceLines(m.source, m.line)));

    const rowsOf = (query) => {
        if (query.problem)
            return paragraph('text', query.problem);
        if (query.sample.length === 0)
            return paragraph('none', query.rows ? 'Only counted.' : 'No rows.');
        const columns = '123456789abcdefghijklmnopqrstuvwxyz';
        const heads = ['$0', ...query.sample[0].map((_, i) => '$' + columns[i])];
        const rest = query.rows - query.sample.length;
        return make('div', {className: 'rows code'},
            table(heads, query.sample.map((row, i) => [String(i), ...row])),
            rest > 0 ? paragraph('none', `and ${plural(rest, 'more row', 'more rows')}`) : null);
    };

    const queries = () => {
        if (data.queries.length === 0)
            return paragraph('none', 'This page asks for no data.');
        const total = data.queries.reduce((sum, query) => sum + query.microseconds, 0);
        const again = 'An include stands in its body: the command ran again behind it.';
        return [
            paragraph('sum', `${plural(data.queries.length, 'query', 'queries')} in `
                + `${time(total)}. Open one to see its rows.`),
            ...data.queries.map((query) => make('details',
                {className: query.problem ? 'error' : ''},
                make('summary', {}, code(query.text, 'query'),
                    query.repeated ? span('soft', 'again', again) : null,
                    span('soft', placeOf(query.file, query.line)),
                    span('', query.problem ? 'failed' : plural(query.rows, 'row', 'rows')),
                    span('soft', time(query.microseconds))),
                rowsOf(query)))];
    };

    const templates = () => {
        if (data.templates.length === 0)
            return paragraph('none', 'No template was read.');
        const depth = [];
        data.templates.forEach((one, i) => {
            depth[i] = one.parent < 0 ? 0 : depth[one.parent] + 1;
        });
        const name = (one, i) =>
            code('\u00a0'.repeat(4 * depth[i]) + (depth[i] ? '└ ' : '') + one.path);
        return table(['Template', 'Included in', '>Time, with its own includes'],
            data.templates.map((one, i) => [name(one, i),
                one.parent < 0 ? span('soft', 'the page')
                    : code(placeOf(data.templates[one.parent].path, one.line)),
                one.problem || time(one.microseconds)]));
    };

    const variables = () => data.variables.length === 0
        ? paragraph('none', 'No variable was set.')
        : table(['Variable', 'Value', 'Set by'], data.variables.map((variable) => [
            code(variable.name),
            variable.value === '' ? span('soft', 'empty') : code(variable.value),
            make('span', {}, variable.by || code(placeOf(variable.file, variable.line)),
                variable.kept ? span('soft', ' (it kept its former value)') : null)]));

    const texts = () => {
        const lacking = data.texts.length
            ? `${plural(data.texts.length, 'text', 'texts')} that the language lacks:`
            : 'all of them found.';
        const sum = paragraph('sum', data.textCount === 0 ? 'This page has no text fields.'
            : `${plural(data.textCount, 'text field', 'text fields')}, ${lacking}`);
        return data.texts.length === 0 ? sum : [sum,
            table(['Text', 'Used in', 'What the page shows'], data.texts.map((text) => [
                code(`{?${text.id}?}`), code(placeOf(text.file, text.line)),
                text.missing ? 'nothing: no language has it' : 'the text of the fallback']))];
    };

    const isOfPage = (finding) => data.templates.some((one) => one.file === finding.file);
    const allFindings = () => data.findings ? data.findings.findings : [];

    const findings = () => {
        if (!data.findings)
            return paragraph('none', 'orv-check has not looked at the templates: '
                + 'it is not installed, or still at work.');
        const notes = (f) => [f.id, ...(f.notes || []).map((note) =>
            `${placeOf(note.file, note.line)}: ${note.text}`)].join(' · ');
        const list = (all) => all.map((f) => entry(f.severity,
            placeOf(f.file, f.line) + (f.column ? `:${f.column}` : ''), f.text, 1, notes(f), null));
        const mine = list(allFindings().filter(isOfPage));
        const others = list(allFindings().filter((finding) => !isOfPage(finding)));
        if (mine.length === 0)
            mine.push(paragraph('none', 'orv-check finds nothing wrong in these templates.'));
        if (others.length > 0)
            others.unshift(paragraph('sum', 'In templates that this page does not use:'));
        return [...mine, ...others];
    };

    /* ---- The bar ---- */

    const count = (list, severity) => list.filter((item) => item.severity === severity).length;
    const errors = () => data ? count(data.messages, 'error') : 0;
    const warnings = () => data ? count(data.messages, 'warning') : 0;
    const worst = (list) => ['error', 'warning'].find((severity) => count(list, severity)) || '';

    // One row a sheet: what fills it, the list that is counted, and how bad that is.
    const sheets = [
        ['messages', 'Messages', messages, () => data.messages, worst],
        ['queries', 'Queries', queries, () => data.queries,
            (list) => list.some((query) => query.problem) ? 'error' : ''],
        ['templates', 'Includes', templates, () => data.templates,
            (list) => list.some((one) => one.problem) ? 'error' : ''],
        ['variables', 'Variables', variables, () => data.variables, () => ''],
        ['texts', 'Texts', texts, () => data.texts,
            (list) => list.some((text) => text.missing) ? 'warning' : ''],
        ['findings', 'Check', findings, allFindings, worst],
    ].map(([id, title, fill, list, severity]) => ({id, title, fill, list, severity}));

    const change = (name, value) => location.replace(
        `${own}switch?${name}=${encodeURIComponent(value)}&back=${encodeURIComponent(address())}`);

    const choice = (name, title, options, chosen) => make('label', {}, title,
        make('select', {onchange: (event) => change(name, event.target.value)},
            options.map(([value, text]) =>
                make('option', {value, selected: value === chosen}, text))));

    const switches = () => make('div', {className: 'switches'},
        data.languages.length ? choice('language', 'Language',
            [['', 'default'], ...data.languages.map((name) => [name, name])], data.language) : null,
        choice('marks', 'Marks', [['0', 'off'], ['1', 'as tooltips'], ['2', 'everywhere']],
            String(data.marks)),
        make('label', {}, 'Error', make('input', {value: data.error, placeholder: 'none',
            title: 'What the page\'s error commands find. Enter shows it.',
            onchange: (event) => change('error', event.target.value)})));

    const close = () => {
        remember({open: false});
        show();
    };

    // A handler that returns false would take the key from the element that has the focus.
    // A field that goes with a text of its own would take that for meant.
    const onKey = (event) => {
        if (event.key !== 'Escape' || event.isComposing)
            return;
        host.shadowRoot.querySelector('.switches input').value = data.error;
        close();
    };

    const numberOf = (one) =>
        span(`number ${one.severity(one.list())}`, String(one.list().length));

    const tabOf = (one, chosen) => make('button',
        {role: 'tab', type: 'button', id: one.id, 'aria-selected': String(one === chosen),
            onclick: () => {
                remember({tab: one.id});
                show();
                host.shadowRoot.getElementById(one.id).focus();
            }},
        one.title, numberOf(one));

    const panel = (chosen) => {
        const summary = `${data.page ? `${data.page}: ` : ''}${size(data.bytes)} in `
            + `${plural(data.writes, 'write call', 'write calls')}, ${time(data.microseconds)}`;
        return make('section',
            {className: errors() ? 'panel failed' : 'panel', 'aria-label': 'orv-preview',
                onkeydown: onKey},
            make('div', {className: 'top'},
                make('div', {className: 'tabs', role: 'tablist'},
                    sheets.map((one) => tabOf(one, chosen))),
                make('button', {className: 'close', type: 'button', title: 'Close (Escape)',
                    'aria-label': 'Close', onclick: close}, '✕')),
            make('div', {className: 'top second'},
                span('soft', summary, 'Each piece of a page is a write call of its own, '
                    + 'unless the web program gathers them.'),
                switches()),
            make('div', {className: 'sheet', role: 'tabpanel', tabIndex: 0}, chosen.fill()));
    };

    const openAt = (tab) => () => {
        remember(tab ? {open: true, tab} : {open: true});
        show();
        host.shadowRoot.querySelector('[aria-selected=true]').focus();
    };

    const badge = () => {
        if (errors()) {
            const first = data.messages.find((message) => message.severity === 'error');
            return make('button',
                {className: 'badge failed', type: 'button', id: 'badge',
                    onclick: openAt('messages')},
                span('count', plural(errors(), 'error', 'errors')),
                span('where', `${placeOf(first.file, first.line)} ${first.text}`.trim()),
                span('more', 'Show'));
        }
        const found = allFindings().filter(isOfPage).length;
        const notes = [warnings() && plural(warnings(), 'warning', 'warnings'),
            found && plural(found, 'finding', 'findings')].filter(Boolean).join(', ');
        return make('button',
            {className: `badge ${notes ? 'warned' : ''} ${isOver ? 'over' : ''}`, type: 'button',
                id: 'badge', title: 'What the templates of this page did',
                onclick: openAt(warnings() ? 'messages' : found ? 'findings' : '')},
            span('dot', ''), isOver ? 'Preview has ended' : notes || 'Preview',
            data.page ? span('soft', time(data.microseconds)) : null);
    };

    const show = () => {
        if (!host)
            return;
        const focused = host.shadowRoot.activeElement;
        const {open, tab} = recall();
        const chosen = sheets.find((one) => one.id === tab) || sheets[0];
        const scrolled = host.shadowRoot.querySelector('.sheet');
        const top = scrolled && scrolled.dataset.id === chosen.id ? scrolled.scrollTop : 0;
        host.shadowRoot.replaceChildren(
            make('div', {className: 'bar'}, open ? panel(chosen) : badge()));
        const sheet = host.shadowRoot.querySelector('.sheet');
        if (sheet) {
            sheet.dataset.id = chosen.id;
            sheet.scrollTop = top;
        }
        if (focused && focused.id)
            host.shadowRoot.getElementById(focused.id)?.focus();
    };

    const showBadge = () => {
        if (host && !recall().open)
            show();
    };

    // Findings come later than the page: what is typed, open or has the focus stays.
    const showFindings = () => {
        const one = sheets.find(({id}) => id === 'findings');
        const tab = host && host.shadowRoot.getElementById(one.id);
        if (!tab)
            return showBadge();
        tab.lastChild.replaceWith(numberOf(one));
        if (tab.getAttribute('aria-selected') === 'true')
            host.shadowRoot.querySelector('.sheet').replaceChildren(...[one.fill()].flat());
    };

    const begin = () => {
        const report = document.getElementById('orv-preview');
        if (report) {
            data = JSON.parse(report.textContent);
            report.remove();
            if (known !== null && known !== data.generation) {
                reload();
                return;
            }
            known = data.generation;
            host = document.createElement('orv-preview');
            const sheet = new CSSStyleSheet();
            sheet.replaceSync(style);
            host.attachShadow({mode: 'open'}).adoptedStyleSheets = [sheet];
            document.documentElement.append(host);
            if (!data.reloads)
                stopListening();
            show();
            restoreScroll();
        }
        listen();
    };

    findWorker();
    listen();
    if (document.getElementById('orv-preview') || document.readyState !== 'loading')
        begin();
    else
        addEventListener('DOMContentLoaded', begin);
    addEventListener('load', () => {
        restoreScroll();
        remember({scroll: null});
    });
    addEventListener('beforeunload', onLeaving);
    addEventListener('pagehide', stopListening);
    addEventListener('pageshow', (event) => event.persisted && listen());
    document.addEventListener('visibilitychange', onVisibility);
})();
