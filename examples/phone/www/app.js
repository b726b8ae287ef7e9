// What the pages do beyond plain links and forms, which work without this script: tell what the
// phone is doing, show live figures, check forms before they are sent, show how far an upload is.
// The words come from the page's element "texts".
'use strict';

const kNoticeAddress = '/servlet?p=notice';
// The device's status word says what the last request asked for, and only addresses that contain
// "p=notice" leave it as it is; so what is read in the background must contain it, too.
const kDataAddress = '/servlet?p=status-data&quiet=p=notice';
const kBusyPause = 2000;
const kIdlePause = 5000;
const kTimeout = 5000;
const kPressPause = 800;
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

// When somebody followed a link or sent a form last.
let lastLeave = 0;

// Not while somebody is on the way to another page, who would end up at the wrong one.
function goTo(query) {
    if (Date.now() - lastLeave >= kTimeout) {
        location.replace('/servlet?p=' + query);
    }
}

// ---- Reading in the background

const idleAfter = 1000 * Number(page.idleSeconds);
const pollers = [];
let lastInput = Date.now();

// A window that is not looked at, or that nobody uses, asks nothing; else it would keep its
// session alive for ever.
function isForgotten() {
    return document.hidden || Date.now() - lastInput >= idleAfter;
}

// Calls `read`, which gives the pause until its next call, until the window is forgotten.
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
            this.turn();
        }
    }

    async turn() {
        this.timer = 0;
        showPaused(isForgotten());
        if (isForgotten()) {
            return;
        }
        this.isReading = true;
        const pause = await this.read();
        this.isReading = false;
        this.timer = setTimeout(() => this.turn(), pause);
    }
}

function noteInput() {
    const wasForgotten = isForgotten();
    lastInput = Date.now();
    if (wasForgotten) {
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
        // Without the cookie, since asking is no use of the session.
        word = await request(kNoticeAddress, {credentials: 'omit'}, async answer => {
            return answer.ok ? (await answer.text()).trim() : 'unreachable';
        });
    } catch (error) {
        // Not reachable, which the banner tells.
    }
    failures = word === 'unreachable' ? failures + 1 : 0;
    if (failures === 1) {
        return kBusyPause; // a single failure may be this page being left
    }
    showNotice(word);
    if (word === 'idle' && document.querySelector('[data-restarting]')) {
        goTo('status');
    }
    return word === 'idle' ? kIdlePause : kBusyPause;
}

// ---- Live figures

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
        return; // nothing to compare with: the first answer, or the first after a restart
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
        setTimeout(() => key.classList.remove('pressed'), kPressPause);
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
        // Not reachable, which the banner tells.
    }
    return kBusyPause;
}

// ---- Forms

function isOn(id) {
    const control = document.getElementById(id);
    return control !== null && control.checked;
}

// What is wrong with the value as a code and a limit; null when nothing is.
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

// Shows beside the field what is wrong with it, and says whether nothing is.
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

// What moves the content must not happen between a press on a button and its release, or that
// would miss the button.
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

// One key after the other: of two requests at the same time either may arrive first.
function pressKey(form, button) {
    const body = new URLSearchParams(new FormData(form));
    body.set(button.name, button.value);
    keysSent = keysSent.then(() => sendKey(form, body));
}

async function sendKey(form, body) {
    try {
        // A redirect says that the key was taken, or that nobody is signed in any more: the figures,
        // which are read next, show which.
        await request(form.action, {method: 'POST', body, redirect: 'manual'}, async answer => {
            if (answer.type !== 'opaqueredirect' && !answer.ok) {
                goTo('phone');
            }
        });
    } catch (error) {
        // Not reachable, which the banner tells.
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
            // Told in steps, or a screen reader would read numbers all the time.
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

// Puts the page that came as an answer in the place of this one; says whether there was one.
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
window.addEventListener('beforeunload', () => { lastLeave = Date.now(); });
document.addEventListener('visibilitychange', () => {
    if (!document.hidden) {
        wakePollers();
    }
});
// A page that the browser kept must not be seen once nobody is signed in any more.
window.addEventListener('pageshow', event => {
    if (event.persisted) {
        location.reload();
    }
});
