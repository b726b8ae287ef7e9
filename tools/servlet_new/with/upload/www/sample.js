// Sends the form with a progress bar. Without this script the browser sends it by itself.
"use strict";

// Shows the page that the server answered with, and moves the focus to what it says.
function show(page) {
    const main = page.querySelector("main");
    document.querySelector("main").replaceWith(main);
    main.querySelector("[role=alert], [role=status]").focus();
}

function send(form) {
    const bar = form.querySelector("progress");
    const status = form.querySelector(".progress");
    const say = (role, text) => {
        status.setAttribute("role", role);
        status.textContent = text;
    };
    const fail = (reason) => {
        bar.hidden = true;
        say("alert", reason);
    };
    const request = new XMLHttpRequest(); // fetch() reports no progress of an upload
    request.upload.addEventListener("progress", ({ loaded, total }) => {
        bar.max = total;
        bar.value = loaded;
        say("status", loaded < total
            ? `${Math.floor(100 * loaded / total)}% sent`
            : "All is sent. Waiting for the answer.");
    });
    request.addEventListener("load", () => {
        const page = new DOMParser().parseFromString(request.responseText, "text/html");
        if (page.querySelector("main")) { // whatever the status is
            show(page);
        } else {
            fail(`The server refused the upload with status ${request.status}.`);
        }
    });
    request.addEventListener("error", () => fail("The connection was lost. Try again."));
    request.open("POST", form.action);
    request.send(new FormData(form));
    bar.value = 0;
    bar.hidden = false;
    say("status", "0% sent");
}

document.addEventListener("submit", (event) => {
    event.preventDefault();
    if (event.target.querySelector("progress").hidden) { // one upload at a time
        send(event.target);
    }
});
