// The live data of the status page.

import { agoText, durationText } from './durations.js';
import { askFor, onData } from './live.js';
import { all, language, setText, text } from './page.js';

// The charts show the phone's own samples, one for each minute, and at their end what was measured
// since the last one.
const kMinutes = 60;
const kHeight = 100;

let samples = []; // oldest first; each has memory (KiB), received and sent (bytes per second), events
let nextSample = 0; // its number on the phone
let eventsBefore = 0; // the events up to the last sample
let lastTime = 0;

const kMemory = 0;
const kReceived = 1;
const kSent = 2;
const kEvents = 3;

function sizeText(bytes, smallest = 1) {
    const units = ['B', 'KiB', 'MiB', 'GiB'];
    let unit = 0;
    for (; bytes >= 1000 && unit < units.length - 1; ++unit) {
        bytes /= 1024;
    }
    const digits = bytes < 100 && unit > 0 ? smallest : 0;
    const options = {minimumFractionDigits: digits, maximumFractionDigits: digits};
    return bytes.toLocaleString(language, options) + ' ' + units[unit];
}

const rateText = rate => text('perSecond', {rate: sizeText(rate)});
const numberText = number => number.toLocaleString(language);

// Returns the end of a scale: 1, 2 or 5 times a power of ten times `unit`, at least `value`.
function roundedUp(value, unit) {
    const power = 10 ** Math.floor(Math.log10(Math.max(1, value / unit)));
    return unit * power * [1, 2, 5, 10].find(step => step * power * unit >= value);
}

function endOfRates(rates) {
    const largest = Math.max(1024, ...rates);
    return roundedUp(largest, 1024 ** Math.floor(Math.log2(largest) / 10));
}

// Returns where the chart has the values, of which the last one is the current one.
function pointsOf(values, end) {
    return values.map((value, index) => ({
        x: kMinutes - (values.length - 1 - index),
        y: +(kHeight - kHeight * Math.min(1, value / end)).toFixed(1),
    }));
}

function setPath(selector, path) {
    document.querySelector(selector).setAttribute('d', path);
}

// A single value is drawn as the current minute.
function drawLine(name, values, end) {
    const points = pointsOf(values, end);
    if (points.length === 1) {
        points.unshift({x: kMinutes - 1, y: points[0].y});
    }
    const line = 'M' + points.map(({x, y}) => x + ' ' + y).join('L');
    setPath('[data-line="' + name + '"]', line);
    return line + 'V' + kHeight + 'H' + points[0].x + 'Z';
}

function drawBars(name, values, end) {
    setPath('[data-line="' + name + '"]', pointsOf(values, end).map(
        ({x, y}) => 'M' + (x - 0.9) + ' ' + kHeight + 'V' + y + 'h0.8V' + kHeight).join(''));
}

// Labels the axis with its end and half of that, and the chart with the range of its values.
function describe(id, values, end, textOf) {
    const [high, middle] = document.querySelector('[data-scale="' + id + '"]').children;
    high.textContent = textOf(end);
    middle.textContent = textOf(end / 2);
    const chart = document.querySelector('[data-chart="' + id + '"]');
    const name = chart.closest('.chart').querySelector('h3').textContent;
    chart.setAttribute('aria-label', text('chart', {
        name, lowest: textOf(Math.min(...values)), highest: textOf(Math.max(...values))}));
}

function takeHistory(history) {
    const isNew = history.next < nextSample; // the phone was restarted
    samples = (isNew ? [] : samples).concat(history.samples).slice(-kMinutes);
    nextSample = history.next;
    eventsBefore = history.events;
}

// Returns the values of a chart: those of the samples, and the current one.
function valuesOf(column, current) {
    return samples.map(sample => sample[column]).slice(1 - kMinutes).concat(current);
}

function showMemory({total, available}) {
    const used = total - available;
    const memory = valuesOf(kMemory, used);
    const area = drawLine('memory', memory, total);
    setPath('[data-area="memory"]', area);
    describe('memory', memory, total, size => sizeText(1024 * size));
    setText('[data-now="memory"]', text('memory', {used: sizeText(1024 * used), total: sizeText(1024 * total)}));
}

// The current rates are those between the last two responses.
function showTraffic(traffic, lastTraffic) {
    const now = performance.now();
    const seconds = (now - lastTime) / 1000;
    lastTime = now;
    const rate = name => (lastTraffic ? Math.max(0, traffic[name] - lastTraffic[name]) / seconds : 0);
    const received = valuesOf(kReceived, rate('received'));
    const sent = valuesOf(kSent, rate('sent'));
    const end = endOfRates([...received, ...sent]);
    drawLine('received', received, end);
    drawLine('sent', sent, end);
    describe('traffic', [...received, ...sent], end, value => text('perSecond', {rate: sizeText(value, 0)}));
    setText('[data-now="received"]', rateText(rate('received')));
    setText('[data-now="sent"]', rateText(rate('sent')));
}

function showEventCounts(count) {
    const events = valuesOf(kEvents, Math.max(0, count - eventsBefore));
    const end = 2 * roundedUp(Math.max(...events) / 2, 1); // half of it is a whole number, too
    drawBars('events', events, end);
    describe('events', events, end, numberText);
    setText('[data-now="events"]', text('events', {count: numberText(count)}));
}

function showAccounts(accounts) {
    for (const element of all('[data-account]')) {
        const account = accounts[Number(element.dataset.account)];
        if (account && element.dataset.state !== account.state) {
            element.dataset.state = account.state;
            element.textContent = text('state-' + account.state);
        }
    }
}

// Returns the row of an event: a copy of the one in the page's element "event".
function rowOf(event) {
    const row = document.getElementById('event').content.firstElementChild.cloneNode(true);
    row.querySelector('time').textContent = event.time;
    for (const name of ['name', 'value', 'from']) {
        row.querySelector('[data-event="' + name + '"]').textContent = event[name];
    }
    const result = row.querySelector('.state');
    result.dataset.state = event.result;
    result.textContent = text('result-' + event.result);
    return row;
}

function showEvents(events, lastEvents) {
    const body = document.querySelector('[data-events]');
    if (!lastEvents || lastEvents.count !== events.count) {
        body.replaceChildren(...events.recent.map(rowOf));
        const isEmpty = events.recent.length === 0;
        body.closest('table').hidden = isEmpty;
        document.querySelector('[data-no-events]').hidden = !isEmpty;
    }
    body.querySelectorAll('[data-ago]').forEach((place, index) => {
        place.textContent = agoText(events.recent[index].ago);
    });
}

askFor(() => '&since=' + nextSample);
onData((data, lastData) => {
    const isSameRun = lastData && data.uptime.seconds >= lastData.uptime.seconds;
    takeHistory(data.history);
    setText('[data-value="uptime"]', durationText(data.uptime.seconds));
    showMemory(data.memory);
    showTraffic(data.traffic, isSameRun ? lastData.traffic : null);
    showEventCounts(data.events.count);
    showAccounts(data.accounts);
    showEvents(data.events, lastData && lastData.events);
});
