/* live.js - keeps what is alive on a page fresh: the elements with data-live take the
 * place of those that a new copy of the page has under the same id. Forms stay as they
 * are. Where a device starts again, it waits for it and goes to data-return. Without it
 * a reload does the same. */
"use strict";

(function () {
    const everySeconds = 10;

    async function fetchPage(address) {
        const answer = await fetch(address, {cache: "no-store"});
        if (!answer.ok)
            throw new Error(answer.status);
        return new DOMParser().parseFromString(await answer.text(), "text/html");
    }

    async function refresh() {
        if (document.hidden)
            return;
        const page = await fetchPage(location.href);
        for (const element of document.querySelectorAll("[data-live]")) {
            const fresh = page.getElementById(element.id);
            if (fresh && fresh.innerHTML !== element.innerHTML)
                element.replaceChildren(...fresh.childNodes);
        }
        document.dispatchEvent(new Event("refreshed"));
    }

    /* Goes on with the page when it answers, some time after the device went away, and be it
     * that one has to sign in again. */
    async function comeBack(target) {
        const answer = await fetch(target, {cache: "no-store"});
        if (answer.status < 500)
            location.replace(target);
    }

    const waiting = document.querySelector("[data-return]");
    const repeat = (action, seconds) => setInterval(() => action().catch(() => {}), seconds * 1000);
    if (waiting)
        setTimeout(() => repeat(() => comeBack(waiting.dataset.return), 2),
                   waiting.dataset.wait * 1000);
    else if (document.querySelector("[data-live]"))
        repeat(refresh, everySeconds);
})();
