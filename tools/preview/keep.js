/* tools/preview/keep.js - what the bar knows of its page, and what lasts from one page of a tab
 * to the next: how the bar was left, what is switched, and over a reload what was typed, what
 * had the focus and how far the page was scrolled. */

const own = new URL('.', document.currentScript.src).href;
document.currentScript.remove();

const page = {
    data: null,      // what the run did; null on a page that was stopped
    host: null,      // the element that has the bar
    isThere: false,  // its report has been read, or it has none
    state: null,     // what the stream has told last
    known: null,     // generation of the files that the page shows
    wholeOf: null,   // generation of which all findings have come
    isOver: false,   // the preview has ended
    isStale: false,  // the page is to be loaded again
    isAgain: false,  // it has asked for that itself
    isLeaving: false // another page is on its way, or this one anew
};

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

/* ---- Switches ---- */

// The server is told by cookies: by "tab" what the tab's next page is to be like, for as long as
// that is on its way, since the answer removes it; by "page" what the page is like that asks for
// more.
const cookieName = (kind) => `orv${kind}${location.port || 80}=`;
const setCookie = (kind, switches, seconds) => {
    try {
        document.cookie = `${cookieName(kind)}${new URLSearchParams(switches)}`
            + `; path=/; samesite=strict${seconds === null ? '' : `; max-age=${seconds}`}`;
    } catch {
        // A frame without an origin has no cookies.
    }
};
const sendSwitches = () => {
    const {switches} = recall();
    if (switches)
        setCookie('tab', switches, 60);
};
const isOnItsWay = () => {
    try {
        return document.cookie.includes(cookieName('tab'));
    } catch {
        return false;
    }
};
// Returns whether the page is to be asked for again, at most twice: it is not as was switched, and
// was not told so. That was switched while it was on its way; or another tab has taken the cookie,
// or it was behind the request, as happens in a browser that is busy. What a form has led to is
// shown as it is, and a frame is as it was told.
const takeSwitches = () => {
    const {language, marks, error, told, posted} = page.data;
    const {switches, tries = 0} = recall();
    const shown = {language, marks: String(marks), error};
    const [wanted, had] = [switches, shown].map((one) => String(new URLSearchParams(one)));
    const isTold = switches && told === wanted;
    if (parent !== window && !isTold)
        return false;
    const isLate = switches && !isTold && had !== wanted && tries < 2;
    remember(isLate ? {tries: tries + 1} : {switches: shown, tries: 0});
    setCookie('tab', {}, 0);
    return isLate && !posted;
};
const showSwitches = () => page.data && setCookie('page', recall().switches || {}, null);

/* ---- What is typed ---- */

const touched = new Set(); // fields that the visitor has changed
addEventListener('input', (event) => event.isTrusted && touched.add(event.composedPath()[0]), true);

// A field's name that holds for the next page: which form, name, id, of several the number. The
// bar has one field of text.
const namedFields = () => {
    const counts = {};
    const forms = [...document.forms];
    const named = [...document.querySelectorAll('input, textarea, select')].map((field) => {
        const choice = ['radio', 'checkbox'].includes(field.type) ? field.value : '';
        const name = [forms.indexOf(field.form), field.name, field.id, choice].join(' ');
        counts[name] = (counts[name] || 0) + 1;
        return [`${name} ${counts[name]}`, field];
    });
    const ofBar = page.host?.shadowRoot.querySelector('#error');
    return ofBar ? [...named, ['bar', ofBar]] : named;
};

const isChecked = (field) => ['radio', 'checkbox'].includes(field.type);

const valueOf = (field) => isChecked(field) ? field.checked
    : field.multiple && field.options ? [...field.options].map((option) => option.selected)
        : field.value;

const setValue = (field, value) => {
    if (isChecked(field))
        field.checked = value;
    else if (Array.isArray(value))
        value.forEach((isSelected, i) => {
            if (field.options[i])
                field.options[i].selected = isSelected;
        });
    else if (field.type !== 'file')
        field.value = value;
    touched.add(field);
};

// Where a text's caret is; other fields have none.
const caretOf = (field) => {
    try {
        return [field.selectionStart, field.selectionEnd];
    } catch {
        return null;
    }
};

// Called when the page gives way: until then it is used.
const keep = () => {
    const named = namedFields();
    const barFocused = page.host?.shadowRoot.activeElement;
    const focused = named.find(([, field]) => field === (barFocused || document.activeElement));
    remember({kept: {...recall().kept, [address()]: {
        scroll: [scrollX, scrollY],
        values: named.filter(([, field]) => touched.has(field))
            .map(([name, field]) => [name, valueOf(field)]),
        focused: focused ? focused[0] : null,
        caret: focused ? caretOf(focused[1]) : null,
        barFocus: barFocused?.id
    }}});
};

// What was kept of this page, which is forgotten; pages in frames keep theirs.
const takeKept = () => {
    const {kept} = recall();
    const own = kept?.[address()];
    if (own) {
        delete kept[address()];
        remember({kept});
    }
    return own;
};

const restoreScroll = ({scroll}) =>
    scrollTo({left: scroll[0], top: scroll[1], behavior: 'instant'});

// Puts all of that back. Returns the id of the bar's element that had the focus; null for none.
const restore = (kept) => {
    restoreScroll(kept);
    const fields = new Map(namedFields());
    for (const [name, value] of kept.values)
        if (fields.has(name))
            setValue(fields.get(name), value);
    const focused = fields.get(kept.focused);
    focused?.focus({preventScroll: true});
    if (focused && kept.caret && kept.caret[0] !== null)
        focused.setSelectionRange(...kept.caret);
    return kept.barFocus || null;
};
