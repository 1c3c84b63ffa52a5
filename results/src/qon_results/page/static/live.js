// The line's cells as they change: tiles come ready from the server, which has escaped every text in them.
"use strict";

const cells = document.getElementById("cells");
const trouble = document.getElementById("trouble");
let ahead = Number(cells.dataset.now || Date.now()) - Date.now(); // the server's clock counts

function show(words) {
  trouble.textContent = words;
  trouble.hidden = !words;
}

function tick() {
  for (const left of document.querySelectorAll("[data-until]")) {
    const seconds = Math.round((Number(left.dataset.until) - Date.now() - ahead) / 1000);
    const text = `${Math.floor(Math.abs(seconds) / 60)}:${String(Math.abs(seconds) % 60).padStart(2, "0")}`;
    left.textContent = `${seconds < 0 ? left.dataset.over : left.dataset.left} ${text}`;
  }
}

const source = new EventSource("/events");
source.addEventListener("cells", (message) => {
  const found = JSON.parse(message.data);
  ahead = found.now - Date.now();
  const there = [...cells.querySelectorAll(".cell")].map((cell) => cell.id);
  const wanted = found.order.filter((key) => key !== "totals");
  if (there.join() !== wanted.join()) {
    location.reload(); // a station came or went
    return;
  }
  for (const [key, tile] of Object.entries(found.tiles)) {
    const old = document.getElementById(key);
    const focused = old.contains(document.activeElement);
    old.outerHTML = tile;
    if (focused) document.getElementById(key).querySelector("a")?.focus();
  }
  tick();
});
source.addEventListener("trouble", (message) => show(JSON.parse(message.data)));
source.addEventListener("error", () => show(trouble.dataset.lost));
source.addEventListener("open", () => show(""));
setInterval(tick, 1000);
tick();
