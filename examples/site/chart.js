/* chart.js - draws the two charts of the traffic page from its data block. The
 * page's tables say the same, so nothing is lost without it. */
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

    function addChart(figure, width, height) {
        const chart = add(figure, "svg", {viewBox: "0 0 " + width + " " + height, role: "img",
                                          "aria-label": figure.textContent.trim()});
        figure.hidden = false;
        return chart;
    }

    /* One pair of columns an hour: what came in and what went out. */
    function drawHours(figure, hours) {
        const names = [figure.dataset.received, figure.dataset.sent];
        const chart = addChart(figure, 480, 200);
        const most = Math.max(1, ...hours.map(hour => Math.max(hour[1], hour[2])));
        hours.forEach(function (hour, i) {
            names.forEach(function (name, k) {
                const height = 160 * hour[k + 1] / most;
                const bar = add(chart, "rect", {class: "bar" + k, x: i * 20 + 2 + k * 8,
                                                y: 170 - height, width: 8, height: height});
                add(bar, "title", {}, name + ", " + hour[0] + ":00: " + hour[k + 1]);
            });
            if (hour[0] % 3 === 0)
                add(chart, "text", {x: i * 20 + 2, y: 188}, hour[0] + ":00");
        });
    }

    /* One line a device. */
    function drawDevices(figure, devices) {
        const chart = addChart(figure, 480, devices.length * 26);
        const most = Math.max(1, ...devices.map(device => device[1]));
        devices.forEach(function (device, i) {
            add(chart, "rect", {class: "bar0", x: 170, y: i * 26 + 4,
                                width: 240 * device[1] / most, height: 18});
            add(chart, "text", {class: "name", x: 0, y: i * 26 + 18}, device[0]);
            add(chart, "text", {x: 176 + 240 * device[1] / most, y: i * 26 + 18}, device[1]);
        });
    }

    const data = JSON.parse(document.getElementById("traffic-data").textContent);
    drawHours(document.getElementById("chart"), data.hours);
    drawDevices(document.getElementById("volume"), data.devices);
})();
