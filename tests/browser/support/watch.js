// Notes all that goes wrong in the pages of a browser context while nobody looks.

// Chromium's word for an answer that the phone gave on purpose or not, or did not give; the status
// and the failure, which are noted, tell more.
const kFailedToLoad = /^Failed to load resource: (the server responded with a status of|net::)/;

// For the document of a page; what comes may be a download instead.
const isForPage = (request) =>
    request.isNavigationRequest() && request.frame().parentFrame() === null;

const pageOf = (request) => request.frame().page();

// The browser gives up an answer that the page of another site must not see.
function isOfAnotherSite(request) {
    return new URL(request.frame().url()).origin !== new URL(request.url()).origin;
}

export class Watch {
    constructor(context, language) {
        this.language = language; // of its visitor
        this.problems = [];
        this.announced = [];
        this.announcedFailures = 0;
        this.documents = new WeakMap();
        this.askers = new WeakMap(); // the document that each request is for
        this.departures = new WeakMap(); // the request by which a page is about to be left
        this.arrivals = new WeakMap(); // the answer that it is about to be made from
        context.on('page', (page) => page.on('framenavigated', (frame) => this.#onArrival(frame)));
        context.on('console', (message) => this.#onConsole(message));
        context.on('weberror', (error) => this.#note(`uncaught: ${error.error()}`));
        context.on('request', (request) => this.#onRequest(request));
        context.on('requestfailed', (request) => this.#onFailure(request));
        context.on('response', (response) => this.#onResponse(response));
    }

    // The next answer with this status, an error, is what the test wants; not getting one is wrong.
    expectStatus(status) {
        this.announced.push(status);
    }

    // The next request that gets no answer is meant to get none; getting one is wrong.
    expectFailure() {
        ++this.announcedFailures;
    }

    // The answer that the page was last made from.
    documentOf(page) {
        return this.documents.get(page);
    }

    // What went wrong so far, and forgets it.
    takeProblems() {
        const missing = [
            ...this.announced.map((status) => `no answer with status ${status}`),
            ...Array(this.announcedFailures).fill('no request without an answer'),
        ];
        const problems = [...this.problems, ...missing];
        this.problems = [];
        this.announced = [];
        this.announcedFailures = 0;
        return problems;
    }

    #note(problem) {
        this.problems.push(problem);
    }

    #onConsole(message) {
        if (['error', 'warning'].includes(message.type()) && !kFailedToLoad.test(message.text())) {
            this.#note(`console ${message.type()}: ${message.text()}`);
        }
    }

    #onRequest(request) {
        if (isForPage(request)) {
            this.departures.set(pageOf(request), request);
        } else {
            this.askers.set(request, this.documents.get(pageOf(request)));
        }
    }

    // Between the answer and this, the page that is left may still ask for something.
    #onArrival(frame) {
        const page = frame.page();
        if (frame === page.mainFrame() && this.arrivals.has(page)) {
            this.documents.set(page, this.arrivals.get(page));
            this.#endDeparture(page);
        }
    }

    #endDeparture(page) {
        this.departures.delete(page);
        this.arrivals.delete(page);
    }

    // A page that is left gives up what it was asking for, and a script may not want to go where it
    // is sent.
    #isGivenUp(request) {
        const page = pageOf(request);
        return request.redirectedFrom() !== null || page.isClosed() || this.departures.has(page) ||
            this.askers.get(request) !== this.documents.get(page);
    }

    #onFailure(request) {
        const reason = request.failure().errorText;
        if (isForPage(request)) {
            this.#endDeparture(pageOf(request));
        }
        // A frame that goes elsewhere, or whose upload was answered before it was read to its end.
        const isNavigation = request.isNavigationRequest();
        if (reason === 'net::ERR_ABORTED' &&
            (isNavigation || isOfAnotherSite(request) || this.#isGivenUp(request))) {
            return;
        }
        if (this.announcedFailures > 0) {
            --this.announcedFailures;
        } else {
            this.#note(`failed: ${request.method()} ${request.url()}: ${reason}`);
        }
    }

    #onResponse(response) {
        const request = response.request();
        if (isForPage(request)) {
            this.arrivals.set(pageOf(request), response);
        }
        if (response.status() < 400) {
            return;
        }
        const index = this.announced.indexOf(response.status());
        if (index >= 0) {
            this.announced.splice(index, 1);
        } else {
            this.#note(`status ${response.status()}: ${request.method()} ${response.url()}`);
        }
    }
}
