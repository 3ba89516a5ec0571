/* tools/preview/worker.js - the worker that all pages share. A browser has few connections to
 * one server, and a stream takes one for as long as it lasts, so this has the one stream. It
 * also asks for what a page's own policy does not let the page ask for. */
const pages = new Set();
let state = null;

// A page says true when it begins to listen, false when it is left, or names a place to be opened.
self.onconnect = ({ports: [page]}) => {
    page.onmessage = ({data}) => {
        if (typeof data === 'object')
            askEditor(data, new URL('.', location).href)
                .then((problem) => page.postMessage({problem}));
        else if (data)
            pages.add(page);
        else
            pages.delete(page);
        if (data === true && state)
            page.postMessage(state);
    };
};
follow(new URL('events', location), (now) => {
    state = now;
    pages.forEach((page) => page.postMessage(state));
});
