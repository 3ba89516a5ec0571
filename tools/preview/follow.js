/* tools/preview/follow.js - the stream of changes, for a page and for the worker that pages
 * share. */

/* Follows the stream. Calls take with all that is known, {changes, findings, isOver}, whenever
 * some of it comes; what has not come yet is undefined. Returns a function that ends it. */
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
        for (const name of ['changes', 'findings'])
            source.addEventListener(name, (event) =>
                change({[name]: JSON.parse(event.data), isOver: false}));
        source.addEventListener('error', () => {
            // Where a stream was refused, somebody answers.
            change({isOver: state.changes !== undefined || source.readyState !== EventSource.CLOSED});
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

/* Asks the preview to open a place, {file, line, column}, in the author's editor. Gives a
 * promise of why that did not work; the empty text when it did. */
const askEditor = (place, own) =>
    fetch(`${own}open`, {method: 'POST', body: new URLSearchParams(place)})
        .then((answer) => answer.ok ? '' : answer.text(), () => 'The preview does not answer.');
