// Sends the form with a progress bar. Without this script the browser sends it by itself.
"use strict";

document.addEventListener("submit", (event) => {
    event.preventDefault();
    const form = event.target;
    const bar = form.querySelector("progress");
    const request = new XMLHttpRequest(); // fetch() reports no progress of an upload
    request.upload.addEventListener("progress", ({ loaded, total }) => {
        bar.max = total;
        bar.value = loaded;
    });
    // Shows the page that the server answers with, whatever its status is.
    request.addEventListener("load", () => {
        const answer = new DOMParser().parseFromString(request.responseText, "text/html");
        const main = answer.querySelector("main");
        document.querySelector("main").replaceWith(main ?? answer.body);
    });
    request.addEventListener("error", () => {
        bar.hidden = true;
        form.append("The connection was lost.");
    });
    request.open("POST", form.action);
    request.send(new FormData(form));
    bar.hidden = false;
});
