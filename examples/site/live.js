/* live.js - keeps what is alive on a page fresh: the elements with data-live take the
 * place of those that a new copy of the page has under the same id. Forms stay as they
 * are. Where a device starts again, it waits for it and goes to data-return. Without it
 * a reload does the same. */
"use strict";

(function () {
    const everySeconds = 10;

    /* Where a page says that it is no longer what it shows: the session has ended, or nothing
     * answers. An empty reason takes that back. */
    function tell(reason) {
        const place = document.getElementById("stale");
        if (place && place.textContent !== reason)
            place.textContent = reason;
        if (place)
            place.hidden = !reason;
    }

    /* What somebody has selected, or is about to press, stays as it is. */
    function isInUse(element) {
        const selection = getSelection();
        return element.contains(document.activeElement)
            || !selection.isCollapsed && selection.containsNode(element, true);
    }

    async function refresh() {
        if (document.hidden)
            return;
        const place = document.getElementById("stale");
        const answer = await fetch(location.href, {cache: "no-store"}).catch(() => null);
        if (!answer || answer.status !== 200)
            return tell(place.dataset[answer && answer.status === 403 ? "ended" : "lost"]);
        const page = new DOMParser().parseFromString(await answer.text(), "text/html");
        tell("");
        for (const element of document.querySelectorAll("[data-live]")) {
            const fresh = page.getElementById(element.id);
            if (fresh && fresh.innerHTML !== element.innerHTML && !isInUse(element))
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
    else if (document.querySelector("[data-live]")) {
        repeat(refresh, everySeconds);
        for (const event of ["online", "offline", "visibilitychange"])
            addEventListener(event, () => refresh().catch(() => {}), true);
    }
})();
