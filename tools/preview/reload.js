/* tools/preview/reload.js - which changes concern a page, and how it comes to show them. */

let worker = null;        // null where there is none
let stopFollowing = null; // ends the page's own stream; null while there is none

// A page that is not seen is loaded again when it is, and none instead of the page that
// a link leads to.
const reload = () => {
    page.isStale = true;
    if (document.hidden || page.isLeaving)
        return;
    page.isAgain = true;
    sendSwitches();
    if (page.data && page.data.posted)
        location.replace(address()); // the form is not sent again
    else
        location.reload();
};

const reloadIfStale = () => page.isStale && reload();

// Whether the link that was used last is another program's, such as the author's editor.
let isToProgram = false;
addEventListener('click', (event) => {
    isToProgram = event.composedPath().some(({protocol}) => protocol && !/^http/.test(protocol));
}, true);

// What the link leads to may be no page: then this one is still there a while after the answer. A
// reload that takes long is not begun once more.
const onLeaving = () => {
    if (isToProgram) {
        isToProgram = false;
        return;
    }
    sendSwitches();
    page.isLeaving = true;
    const look = (isAnswered) => setTimeout(() => {
        if (!isAnswered) {
            look(!isOnItsWay());
            return;
        }
        page.isLeaving = false;
        if (!page.isAgain)
            reloadIfStale();
    }, 2500);
    look(false);
};

const onLeft = () => {
    if (page.isAgain && page.data)
        keep();
    stopListening();
};

/* ---- What a page is made of ---- */

// A file of the site by its address, null for any other.
const fileOf = (link) => {
    const url = new URL(link, document.baseURI);
    if (url.origin !== location.origin || url.href.startsWith(own))
        return null;
    try {
        return decodeURIComponent(url.pathname.slice(1));
    } catch {
        return null;
    }
};

// What the page has loaded; pages in frames are loaded again by themselves.
const resources = () => performance.getEntriesByType('resource')
    .filter((entry) => !/frame/.test(entry.initiatorType));

// Whether some of that was made of templates, by which texts and data can be in it as well.
const usesRendered = () => resources().some((entry) =>
    (entry.serverTiming || []).some(({name}) => name === 'orv-rendered'));

const sheetLinks = () => [...document.querySelectorAll('link[rel~=stylesheet][href]')];

const ownFiles = () => new Set([
    ...page.data.templates.map((one) => one.file), ...page.data.files,
    ...resources().map((entry) => fileOf(entry.name)),
    ...[...document.querySelectorAll('[src]:not(iframe, frame), link[href]')].map((element) =>
        fileOf(element.getAttribute('src') || element.getAttribute('href')))]);

const isTemplate = (file) => /\.(htm|html|frm)$/.test(file);

/* Why a change concerns the page: files, or true for what no file of its own can be named for.
 * A folder that has come or gone concerns what is in it. */
const reasons = (change, files) => {
    const {data} = page;
    if (change.all || data.trouble || data.templates.length === 0)
        return [true];
    const found = change.files.filter((changed) =>
        [...files].some((file) => file === changed || file?.startsWith(`${changed}/`)));
    if ((change.data && data.queries.length > 0) || (change.texts && data.textCount > 0)
        || (usesRendered() && (change.data || change.texts || change.files.some(isTemplate))))
        found.push(true);
    return found;
};

// Puts a style sheet's new state in the place of the old when it is there.
const former = new WeakMap(); // of a link, those that it takes the place of
const exchange = (link, generation) => {
    const fresh = link.cloneNode();
    const url = new URL(link.href);
    url.searchParams.set('orvpreview', generation);
    fresh.href = url.href;
    former.set(fresh, [...(former.get(link) || []), link]);
    fresh.onload = fresh.onerror = () => former.get(fresh).forEach((old) => old.remove());
    link.after(fresh);
};

// A change of a generation that is not known any more can be anything. A page without a report
// was stopped, and may be whole now.
const takeChanges = ({generation, changes}) => {
    const {known, data} = page;
    if (known === null)
        page.known = generation;
    if (known === null || generation === known || (data && !data.reloads))
        return;
    const last = changes.findIndex((change) => change.generation === known);
    const files = data && ownFiles();
    const why = last < 0 || !data ? [true]
        : changes.slice(last + 1).flatMap((change) => reasons(change, files));
    const sheets = sheetLinks().filter((link) => why.includes(fileOf(link.href)));
    if (why.some((reason) => !sheets.some((link) => fileOf(link.href) === reason))) {
        reload();
        return;
    }
    page.known = generation;
    data.findings = null;
    showFindings();
    sheets.forEach((link) => exchange(link, generation));
};

// Findings are shown on a page of the files in which they were found.
const takeFindings = (findings) => {
    if (!page.data || findings.generation !== page.known || page.wholeOf === page.known)
        return;
    page.data.findings = findings;
    page.wholeOf = page.known;
    showFindings();
};

// What comes before the page does is taken when it is there.
const take = (state) => {
    if (state.problem !== undefined) {
        showOpened(state.problem);
        return;
    }
    page.state = state;
    if (!page.isThere)
        return;
    if (page.isOver !== state.isOver) {
        page.isOver = state.isOver;
        showEnd();
    }
    if (state.changes && !page.isOver)
        takeChanges(state.changes);
    if (state.findings)
        takeFindings(state.findings);
};

/* ---- Who listens ---- */

const listen = () => {
    if (worker)
        worker.port.postMessage(true);
    else if (!stopFollowing)
        stopFollowing = follow(`${own}events`, take);
};

const stopListening = () => {
    if (worker)
        worker.port.postMessage(false);
    if (stopFollowing)
        stopFollowing();
    stopFollowing = null;
};

// Firefox asks for trusted types before the page's policy that does is in force.
const trusted = (link) => {
    try {
        return trustedTypes.createPolicy('orv-preview', {createScriptURL: (text) => text})
            .createScriptURL(link);
    } catch {
        return link;
    }
};

const findWorker = () => {
    try {
        worker = new SharedWorker(trusted(`${own}worker.js`), 'orv-preview');
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
    if (worker || (page.data && page.data.policy))
        return;
    if (document.hidden)
        stopListening();
    else
        listen();
};

const openPlace = (place) => {
    if (worker)
        worker.port.postMessage(place);
    else
        askEditor(place, own).then(showOpened);
};
