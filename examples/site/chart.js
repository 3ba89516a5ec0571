/* chart.js - draws the charts of the traffic page from its data block and table, and again when
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

    /* Lines at round numbers, with these in front. Returns the scale: pixels for one unit. */
    function addScale(chart, width, most) {
        const power = Math.pow(10, Math.floor(Math.log10(Math.max(1, most))));
        const step = power * [1, 2, 5, 10].find(part => most / (part * power) <= 4);
        const scale = 160 / (Math.ceil(most / step) * step || 1);
        for (let value = 0; value * scale <= 160.5; value += step) {
            const y = 180 - value * scale;
            add(chart, "path", {class: "grid", d: "M28 " + y + "H" + width});
            add(chart, "text", {x: 24, y: y + 4, "text-anchor": "end"}, value);
        }
        return scale;
    }

    /* One pair of columns an hour or a minute: what came in and what went out. label: returns
     * the time of one; every: how many of them have it written below. */
    function drawTimes(figure, times, label, every) {
        if (times.length === 0) // of a device that has just started
            return void (figure.hidden = true);
        const names = [figure.dataset.received, figure.dataset.sent];
        const [chart, width] = addChart(figure, 220);
        const scale = addScale(chart, width, Math.max(...times.flatMap(time => [time[1], time[2]])));
        const step = (width - 32) / times.length;
        times.forEach(function (time, i) {
            names.forEach(function (name, k) {
                const height = scale * time[k + 1];
                const bar = add(chart, "rect", {class: "bar" + k, x: 32 + i * step + k * step * 0.4,
                                                y: 180 - height, width: step * 0.4,
                                                height: height});
                add(bar, "title", {}, name + ", " + label(time[0]) + ": " + time[k + 1] + " Mbit/s");
            });
            if (time[0] % every === 0)
                add(chart, "text", {x: Math.min(32 + i * step, width - 36), y: 202}, label(time[0]));
        });
    }

    /* One line a device, its name above where there is no room beside it. */
    function drawDevices(figure, devices) {
        if (devices.length === 0)
            return void (figure.hidden = true);
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
        const [minutes, hours, volume] = ["minutes", "chart", "volume"].map(
            id => document.getElementById(id));
        const rows = [...document.querySelectorAll("#hours tbody tr")].map(
            row => [...row.cells].map(cell => parseFloat(cell.textContent)));
        minutes.hidden = hours.hidden = volume.hidden = false;
        const isNarrow = hours.clientWidth < 480;
        drawTimes(minutes, data.minutes, ago => -ago + " min", isNarrow ? 20 : 10);
        drawTimes(hours, rows, hour => hour + ":00", isNarrow ? 6 : 3);
        drawDevices(volume, data.devices);
    }

    draw();
    window.addEventListener("resize", draw);
    document.addEventListener("refreshed", draw);
})();
