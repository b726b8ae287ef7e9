// Shows the tasks of the page, and adds those that are entered.
"use strict";

const address = "/servlet?p=sample&q=tasks";
const form = document.querySelector("form");
const status = document.querySelector("[role=status]");

function show(task) {
    const item = document.createElement("li");
    item.textContent = `${task.title} (${task.priority})`; // never as HTML
    document.querySelector("ol").append(item);
}

async function receive(options) {
    const response = await fetch(address, options);
    const body = await response.json();
    if (!response.ok) {
        throw new Error(body.error);
    }
    return body;
}

async function add() {
    const { title, priority } = form.elements;
    show(await receive({
        method: "POST",
        headers: { "Content-Type": "application/json" },
        body: JSON.stringify({ title: title.value, priority: Number(priority.value) }),
    }));
    form.reset();
}

async function run(action) {
    status.textContent = "";
    try {
        await action();
    } catch (error) {
        status.textContent = error.message;
    }
}

form.addEventListener("submit", (event) => {
    event.preventDefault();
    run(add);
});
run(async () => (await receive()).tasks.forEach(show));
