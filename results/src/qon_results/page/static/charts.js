// Draws each chart of the page from the JSON beside it.
"use strict";

const FONT = { family: 'system-ui, "Noto Sans CJK SC", sans-serif', size: 13, color: "#16212C" };
const LAYOUT = {
  font: FONT, paper_bgcolor: "#FFFFFF", plot_bgcolor: "#FFFFFF", margin: { l: 60, r: 20, t: 12, b: 48 },
  hoverlabel: { font: FONT }, legend: { orientation: "h", y: 1.12 }, colorway: ["#2F5582", "#B35A00", "#1A7F37", "#6F4BA0", "#55626F"],
};
const AXIS = { automargin: true, gridcolor: "#E1E6EB", zerolinecolor: "#C3CCD5", linecolor: "#8F99A3" };

for (const figure of document.querySelectorAll("figure.chart")) {
  const source = figure.querySelector("script");
  const place = figure.querySelector(".plot");
  if (!source || !place) continue;
  const found = JSON.parse(source.textContent);
  const layout = { ...LAYOUT, ...found.layout };
  for (const name of Object.keys(layout).concat("xaxis", "yaxis")) {
    if (/^[xy]axis\d*$/.test(name)) layout[name] = { ...AXIS, ...layout[name] };
  }
  Plotly.newPlot(place, found.traces, layout, { responsive: true, displaylogo: false, displayModeBar: "hover" })
    .then(() => figure.classList.add("drawn"));
}
