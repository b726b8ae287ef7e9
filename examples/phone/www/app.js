// Enhances the pages, whose links and forms also work without this script: shows the phone's status,
// live data and the progress of uploads, and checks forms before they are sent. Texts come from the
// page's element "texts".
'use strict';

const kNoticeAddress = '/servlet?p=notice';
// The status word reflects the last request. Only addresses that contain "p=notice" leave it as it
// is, so addresses polled in the background must contain that too.
const kDataAddress = '/servlet?p=status-data&quiet=p=notice';
const kBusyInterval = 2000;
const kIdleInterval = 5000;
const kTimeout = 5000;
const kPressTime = 800;
const kSamples = 60;

const page = document.body.dataset;
const texts = new Map();
const language = document.documentElement.lang;

function text(key, values = {}) {
    const pattern = texts.has(key) ? texts.get(key) : '';
    return pattern.replace(/\{(\w+)\}/g, (all, name) => (name in values ? values[name] : all));
}

function all(selector) {
    return document.querySelectorAll(selector);
}

function setText(selector, content) {
    for (const element of all(selector)) {
        if (element.textContent !== String(content)) {
            element.textContent = content;
        }
    }
}

// When the user last followed a link or sent a form.
let lastNavigation = 0;

// Does nothing while another page is loading, which the user chose.
function goTo(query) {
    if (Date.now() - lastNavigation >= kTimeout) {
        location.replace('/servlet?p=' + query);
    }
}

// ---- Polling

const idleAfter = 1000 * Number(page.idleSeconds);
const pollers = [];
let lastInput = Date.now();

// Hidden or unused windows do not poll: that would keep their session alive for ever.
function isUnused() {
    return document.hidden || Date.now() - lastInput >= idleAfter;
}

// Calls `read`, which returns the milliseconds until its next call, until the window is unused.
class Poller {
    constructor(read) {
        this.read = read;
        this.timer = 0;
        this.isReading = false;
        pollers.push(this);
        this.wake();
    }

    wake() {
        clearTimeout(this.timer);
        this.timer = 0;
        if (!this.isReading) {
            this.poll();
        }
    }

    async poll() {
        this.timer = 0;
        showPaused(isUnused());
        if (isUnused()) {
            return;
        }
        this.isReading = true;
        const pause = await this.read();
        this.isReading = false;
        this.timer = setTimeout(() => this.poll(), pause);
    }
}

function noteInput() {
    const wasUnused = isUnused();
    lastInput = Date.now();
    if (wasUnused) {
        wakePollers();
    }
}

function wakePollers() {
    for (const poller of pollers) {
        poller.wake();
    }
}

function showPaused(isPaused) {
    for (const element of all('[data-paused]')) {
        element.hidden = !isPaused;
    }
}

async function request(address, options, use) {
    const abort = new AbortController();
    const timeout = setTimeout(() => abort.abort(), kTimeout);
    try {
        return await use(await fetch(address, {cache: 'no-store', signal: abort.signal, ...options}));
    } finally {
        clearTimeout(timeout);
    }
}

// ---- The banner

function showNotice(word) {
    const content = word === 'idle' ? '' : text('notice-' + word) || text('notice-other');
    const banner = document.getElementById('notice');
    if (!banner || banner.textContent === content) {
        return;
    }
    banner.textContent = '';
    if (content) {
        banner.appendChild(document.createElement('p')).textContent = content;
    }
}

let failures = 0;

async function readNotice() {
    let word = 'unreachable';
    try {
        // Without the cookie, so that polling does not keep the session alive.
        word = await request(kNoticeAddress, {credentials: 'omit'}, async answer => {
            return answer.ok ? (await answer.text()).trim() : 'unreachable';
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    failures = word === 'unreachable' ? failures + 1 : 0;
    if (failures === 1) {
        return kBusyInterval; // a single failure may be due to leaving this page
    }
    showNotice(word);
    if (word === 'idle' && document.querySelector('[data-restarting]')) {
        goTo('status');
    }
    return word === 'idle' ? kIdleInterval : kBusyInterval;
}

// ---- Live data

const samples = {memory: [], received: [], sent: [], events: []};
let lastData = null;
let lastTime = 0;

function sizeText(bytes) {
    const units = ['B', 'KiB', 'MiB', 'GiB'];
    let unit = 0;
    for (; bytes >= 1000 && unit < units.length - 1; ++unit) {
        bytes /= 1024;
    }
    const digits = bytes < 100 && unit > 0 ? 1 : 0;
    const options = {minimumFractionDigits: digits, maximumFractionDigits: digits};
    return bytes.toLocaleString(language, options) + ' ' + units[unit];
}

function remember(values, value) {
    values.push(value);
    if (values.length > kSamples) {
        values.shift();
    }
}

function draw(id, names, largest) {
    const chart = document.querySelector('[data-chart="' + id + '"]');
    if (!chart) {
        return;
    }
    const {width, height} = chart.viewBox.baseVal;
    const top = largest || Math.max(1, ...names.flatMap(name => samples[name]));
    for (const name of names) {
        const points = samples[name].map((value, index, values) => {
            const x = width * (1 - (values.length - 1 - index) / (kSamples - 1));
            return x.toFixed(1) + ' ' + (height - (height - 2) * value / top).toFixed(1);
        });
        const line = 'M' + points.join('L');
        chart.querySelector('[data-line="' + name + '"]').setAttribute('d', line);
        const area = chart.querySelector('.area');
        if (area) {
            area.setAttribute('d', line + 'V' + height + 'H' + points[0].split(' ')[0] + 'Z');
        }
    }
}

function showCharts(data) {
    const used = data.memory.total - data.memory.available;
    remember(samples.memory, used);
    draw('memory', ['memory'], data.memory.total);
    setText('[data-now="memory"]', text('memory', {used: sizeText(1024 * used), total: sizeText(1024 * data.memory.total)}));
    setText('[data-now="events"]', text('events', {count: data.events.count}));
    const now = performance.now();
    const seconds = (now - lastTime) / 1000;
    lastTime = now;
    if (!lastData || data.uptime.seconds < lastData.uptime.seconds) {
        return; // the first response, or the first after a restart: nothing to compare with
    }
    const perSecond = (count, before) => Math.max(0, count - before) / seconds;
    const received = perSecond(data.traffic.received, lastData.traffic.received);
    const sent = perSecond(data.traffic.sent, lastData.traffic.sent);
    remember(samples.received, received);
    remember(samples.sent, sent);
    remember(samples.events, Math.max(0, data.events.count - lastData.events.count));
    draw('traffic', ['received', 'sent']);
    draw('events', ['events']);
    setText('[data-now="traffic"]', text('traffic', {received: sizeText(received), sent: sizeText(sent)}));
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

function showEvents(events) {
    const body = document.querySelector('[data-events]');
    if (!body || (lastData && lastData.events.count === events.count)) {
        return;
    }
    const columns = body.closest('table').tHead.rows[0].cells;
    body.replaceChildren(...events.recent.map(event => {
        const row = document.createElement('tr');
        [event.time, event.name, event.value, event.from].forEach((value, index) => {
            const cell = row.insertCell();
            cell.className = 'any';
            cell.dataset.label = columns[index].textContent;
            cell.textContent = value;
        });
        return row;
    }));
    const isEmpty = events.recent.length === 0;
    body.closest('table').hidden = isEmpty;
    document.querySelector('[data-no-events]').hidden = !isEmpty;
}

function showDesk(desk) {
    setText('[data-desk="line1"]', desk.line1);
    setText('[data-desk="line2"]', desk.line2);
    setText('[data-desk="state"]', text('desk-' + desk.state) || desk.state);
    for (const [name, state] of Object.entries(desk.lamps)) {
        for (const lamp of all('[data-lamp="' + name + '"]')) {
            lamp.dataset.state = state;
        }
        setText('[data-lamp-text="' + name + '"]', text('lamp-' + state));
    }
    setText('[data-desk="key"]', desk.key || '–');
    if (lastData && desk.presses !== lastData.desk.presses) {
        showPress(desk.key);
    }
}

function showPress(name) {
    for (const key of all('[data-key="' + name + '"]')) {
        key.classList.add('pressed');
        setTimeout(() => key.classList.remove('pressed'), kPressTime);
    }
}

function showBusy(busy) {
    const running = document.querySelector('[data-running]');
    if (!running) {
        return;
    }
    if (busy.word !== 'autoprovision') {
        goTo('settings-autop');
        return;
    }
    running.querySelector('progress').value = busy.percent;
    setText('[data-value="percent"]', busy.percent);
}

function show(data) {
    setText('[data-value="uptime"]', data.uptime.text);
    showCharts(data);
    showAccounts(data.accounts);
    showEvents(data.events);
    showDesk(data.desk);
    showBusy(data.busy);
    lastData = data;
}

async function readData() {
    try {
        await request(kDataAddress, {redirect: 'manual'}, async answer => {
            if (answer.type === 'opaqueredirect' || answer.status === 403) {
                goTo('login&q=loginForm&jumpto=' + page.page);
            } else if (answer.ok) {
                show(await answer.json());
            }
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    return kBusyInterval;
}

// ---- Forms

function isOn(id) {
    const control = document.getElementById(id);
    return control !== null && control.checked;
}

// Returns the error code and limit of an invalid value, or null.
function faultOf(input) {
    const {validity, value} = input;
    const {sameAs, requiredWith, patternCode} = input.dataset;
    if (validity.badInput || validity.stepMismatch) {
        return {code: 'notANumber'};
    }
    if (validity.valueMissing || (requiredWith && isOn(requiredWith) && value.trim() === '')) {
        return {code: 'required'};
    }
    if (value !== '' && value.length < input.minLength) {
        return {code: 'tooShort', limit: input.minLength};
    }
    if (input.maxLength > 0 && value.length > input.maxLength) {
        return {code: 'tooLong', limit: input.maxLength};
    }
    if (validity.rangeUnderflow) {
        return {code: 'tooSmall', limit: input.min};
    }
    if (validity.rangeOverflow) {
        return {code: 'tooLarge', limit: input.max};
    }
    if (validity.patternMismatch) {
        return {code: patternCode || 'badCharacters'};
    }
    if (sameAs && value !== document.getElementById(sameAs).value) {
        return {code: 'mismatch'};
    }
    return null;
}

// Shows the error of the field next to it. Returns whether the value is valid.
function check(input) {
    const place = document.getElementById(input.id + '-error');
    if (!place || input.closest('[hidden]')) {
        return true;
    }
    const fault = faultOf(input);
    place.textContent = fault ? text(fault.code, fault) : '';
    if (fault) {
        input.setAttribute('aria-invalid', 'true');
    } else {
        input.removeAttribute('aria-invalid');
    }
    return !fault;
}

function checkAll(form) {
    const wrong = [...form.elements].filter(element => element.willValidate && !check(element));
    if (wrong.length > 0) {
        wrong[0].focus();
    }
    return wrong.length === 0;
}

let isPressed = false;

// Runs `action` once no pointer button is pressed: if the content moved between press and release,
// the click would miss its button.
function afterPress(action) {
    if (isPressed) {
        window.addEventListener('pointerup', () => setTimeout(action), {once: true});
    } else {
        action();
    }
}

function showDependents() {
    for (const element of all('[data-shown-with]')) {
        element.hidden = !isOn(element.dataset.shownWith);
    }
}

function showReading(input) {
    setText('[data-reading="' + input.id + '"]', input.value);
}

function prepareForm(form) {
    form.noValidate = true;
    form.addEventListener('change', event => {
        showDependents();
        afterPress(() => check(event.target));
    });
    form.addEventListener('input', event => {
        if (event.target.type === 'range') {
            showReading(event.target);
        } else if (event.target.getAttribute('aria-invalid')) {
            check(event.target);
        }
    });
    form.addEventListener('submit', event => {
        if (!checkAll(form)) {
            event.preventDefault();
        } else if ('upload' in form.dataset) {
            event.preventDefault();
            upload(form);
        } else if ('keys' in form.dataset && event.submitter) {
            event.preventDefault();
            pressKey(form, event.submitter);
        }
    });
}

function prepareForms(root) {
    for (const form of root.querySelectorAll('form')) {
        prepareForm(form);
    }
    showDependents();
    const wrong = root.querySelector('[aria-invalid]');
    if (wrong) {
        wrong.focus();
    }
}

let keysSent = Promise.resolve();

// Sends one key at a time: simultaneous requests may arrive in any order.
function pressKey(form, button) {
    const body = new URLSearchParams(new FormData(form));
    body.set(button.name, button.value);
    keysSent = keysSent.then(() => sendKey(form, body));
}

async function sendKey(form, body) {
    try {
        // A redirect means that the key was accepted or that the session ended; the live data, which
        // is read next, shows which.
        await request(form.action, {method: 'POST', body, redirect: 'manual'}, async answer => {
            if (answer.type !== 'opaqueredirect' && !answer.ok) {
                goTo('phone');
            }
        });
    } catch (error) {
        // Not reachable; the banner shows it.
    }
    wakePollers();
}

// ---- Uploads

function upload(form) {
    const panel = form.querySelector('.progress');
    const bar = panel.querySelector('progress');
    const status = panel.querySelector('p');
    const submit = form.querySelector('[data-submit]');
    const cancel = panel.querySelector('button');
    const transfer = new XMLHttpRequest();

    function setBusy(isBusy) {
        panel.hidden = false;
        bar.hidden = cancel.hidden = !isBusy;
        submit.hidden = isBusy;
    }
    function end(key) {
        setBusy(false);
        status.textContent = text(key);
    }
    transfer.upload.addEventListener('progress', event => {
        if (event.lengthComputable) {
            const percent = Math.floor(100 * event.loaded / event.total);
            bar.value = percent;
            // In steps of ten, so that a screen reader does not read numbers all the time.
            status.textContent = text('uploading', {percent: percent - percent % 10});
        }
    });
    transfer.upload.addEventListener('load', () => {
        bar.removeAttribute('value');
        status.textContent = text('uploaded');
    });
    transfer.addEventListener('load', () => showAnswer(transfer) || end('uploadFailed'));
    transfer.addEventListener('error', () => end('uploadFailed'));
    transfer.addEventListener('abort', () => end('uploadCancelled'));
    cancel.addEventListener('click', () => transfer.abort(), {once: true});

    bar.value = 0;
    status.textContent = text('uploading', {percent: 0});
    setBusy(true);
    transfer.open('POST', form.action);
    transfer.responseType = 'document';
    transfer.send(new FormData(form));
}

// Replaces this page by the one in the response. Returns whether there was one.
function showAnswer(transfer) {
    const answer = transfer.response;
    const content = answer && answer.getElementById('main');
    if (!content) {
        return false;
    }
    if (answer.body.dataset.page !== page.page) {
        location.replace(transfer.responseURL);
        return true;
    }
    document.title = answer.title;
    document.getElementById('main').replaceWith(content);
    prepareForms(content);
    content.focus();
    return true;
}

// ---- Start

for (const element of document.getElementById('texts').content.querySelectorAll('[data-text]')) {
    texts.set(element.dataset.text, element.textContent.trim());
}
prepareForms(document);
new Poller(readNotice);
if (document.querySelector('[data-live]')) {
    new Poller(readData);
}
for (const name of ['pointerdown', 'pointermove', 'keydown', 'wheel', 'touchstart']) {
    window.addEventListener(name, noteInput, {passive: true});
}
window.addEventListener('pointerdown', () => { isPressed = true; }, true);
for (const name of ['pointerup', 'pointercancel']) {
    window.addEventListener(name, () => { isPressed = false; }, true);
}
window.addEventListener('beforeunload', () => { lastNavigation = Date.now(); });
document.addEventListener('visibilitychange', () => {
    if (!document.hidden) {
        wakePollers();
    }
});
// After signing out, pages that the browser kept must not be shown again.
window.addEventListener('pageshow', event => {
    if (event.persisted) {
        location.reload();
    }
});
