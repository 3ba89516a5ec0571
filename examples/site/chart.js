/* chart.js - draws the two charts of the traffic page from its data block, and again when
 * the page's width or the block has changed: letters keep their size. The page's tables
 * say the same, so nothing is lost without it. */
"use strict";

(function () {
    const namespace = "http://www.w3.org/2000/svg";

    function add(parent, name, attributes, text) {
        const element = document.createElementNS(namespace, name);
        for (const key of Object.keys(attributes))
            element.setAttribute(key, String(attributes[key]));
        if (text !== undefined)
            element.textContent = text;
        return parent.appendChild(element);
    }

    function addChart(figure, height) {
        const old = figure.querySelector("svg");
        if (old)
            old.remove();
        figure.hidden = false;
        const width = Math.max(240, Math.min(768, figure.clientWidth));
        const chart = add(figure, "svg", {width: width, height: height, role: "img",
                                          viewBox: "0 0 " + width + " " + height});
        chart.setAttribute("aria-label", figure.querySelector("figcaption").textContent.trim());
        return [chart, width];
    }

    /* One pair of columns an hour: what came in and what went out. */
    function drawHours(figure, hours) {
        const names = [figure.dataset.received, figure.dataset.sent];
        const [chart, width] = addChart(figure, 220);
        const step = width / hours.length;
        const every = step < 18 ? 6 : 3;
        const most = Math.max(1, ...hours.map(hour => Math.max(hour[1], hour[2])));
        hours.forEach(function (hour, i) {
            names.forEach(function (name, k) {
                const height = 170 * hour[k + 1] / most;
                const bar = add(chart, "rect", {class: "bar" + k, x: i * step + k * step * 0.4,
                                                y: 180 - height, width: step * 0.4,
                                                height: height});
                add(bar, "title", {}, name + ", " + hour[0] + ":00: " + hour[k + 1]);
            });
            if (hour[0] % every === 0)
                add(chart, "text", {x: Math.min(i * step, width - 36), y: 202}, hour[0] + ":00");
        });
    }

    /* One line a device, its name above where there is no room beside it. */
    function drawDevices(figure, devices) {
        const isNarrow = figure.clientWidth < 480;
        const line = isNarrow ? 46 : 28;
        const left = isNarrow ? 0 : 180;
        const [chart, width] = addChart(figure, devices.length * line);
        const most = Math.max(1, ...devices.map(device => device[1]));
        devices.forEach(function (device, i) {
            const y = i * line + (isNarrow ? 20 : 4);
            const length = (width - left - 60) * device[1] / most;
            add(chart, "text", {class: "name", x: 0, y: i * line + (isNarrow ? 14 : 18)}, device[0]);
            add(chart, "rect", {class: "bar0", x: left, y: y, width: length, height: 18});
            add(chart, "text", {x: left + length + 6, y: y + 14}, device[1]);
        });
    }

    function draw() {
        const data = JSON.parse(document.getElementById("traffic-data").textContent);
        const hours = document.getElementById("chart");
        const volume = document.getElementById("volume");
        hours.hidden = volume.hidden = false;
        drawHours(hours, data.hours);
        drawDevices(volume, data.devices);
    }

    draw();
    window.addEventListener("resize", draw);
    document.addEventListener("refreshed", draw);
})();
