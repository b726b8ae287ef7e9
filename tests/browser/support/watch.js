// Records every problem in the pages of a browser context.

// Chromium's console message about an error status or a failed request; both are recorded in more
// detail below.
const kFailedToLoad = /^Failed to load resource: (the server responded with a status of|net::)/;

// Returns whether the request is for the document of a page (which may turn out to be a download).
const isForPage = (request) =>
    request.isNavigationRequest() && request.frame().parentFrame() === null;

const pageOf = (request) => request.frame().page();

// The browser aborts responses that a page of another site must not read.
function isOfAnotherSite(request) {
    return new URL(request.frame().url()).origin !== new URL(request.url()).origin;
}

export class Watch {
    constructor(context, language) {
        this.language = language; // of the user
        this.problems = [];
        this.announced = [];
        this.announcedFailures = 0;
        this.documents = new WeakMap();
        this.askers = new WeakMap(); // the document that sent each request
        this.departures = new WeakMap(); // the request that is about to replace a page
        this.arrivals = new WeakMap(); // the response that is about to replace it
        context.on('page', (page) => page.on('framenavigated', (frame) => this.#onArrival(frame)));
        context.on('console', (message) => this.#onConsole(message));
        context.on('weberror', (error) => this.#note(`uncaught: ${error.error()}`));
        context.on('request', (request) => this.#onRequest(request));
        context.on('requestfailed', (request) => this.#onFailure(request));
        context.on('response', (response) => this.#onResponse(response));
    }

    // Expects a response with this error status; its absence is a problem.
    expectStatus(status) {
        this.announced.push(status);
    }

    // Expects a request without a response; its absence is a problem.
    expectFailure() {
        ++this.announcedFailures;
    }

    // Returns the response that the page was last loaded from.
    documentOf(page) {
        return this.documents.get(page);
    }

    // Returns and clears the problems so far.
    takeProblems() {
        const missing = [
            ...this.announced.map((status) => `no response with status ${status}`),
            ...Array(this.announcedFailures).fill('no request without a response'),
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

    // Until now, the page being left may still have sent requests.
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

    // A page that is left aborts its requests, and a script may refuse to follow a redirect.
    #isGivenUp(request) {
        const page = pageOf(request);
        return request.redirectedFrom() !== null || page.isClosed() || this.departures.has(page) ||
            this.askers.get(request) !== this.documents.get(page);
    }

    // A page being left may have asked for data just before its session ended.
    #isRefusedAtSignOut(response) {
        return response.status() === 403 && !isForPage(response.request()) &&
            this.#isGivenUp(response.request());
    }

    #onFailure(request) {
        const reason = request.failure().errorText;
        if (isForPage(request)) {
            this.#endDeparture(pageOf(request));
        }
        // A frame that navigates away, or an upload answered before it was read completely.
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
        } else if (!this.#isRefusedAtSignOut(response)) {
            this.#note(`status ${response.status()}: ${request.method()} ${response.url()}`);
        }
    }
}
