// What the scripts of pages share: elements, and tables that sort and filter. Every text of a document becomes the text of
// an element, never markup.
"use strict";

const ROWS = 25; // of a table at once
const HIDING = /[\u0000-\u001f\u007f-\u009f\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff]/g;
const STATES = {
  captured: ["\u25cf", "captured"],
  withParent: ["\u25c9", "with its parent"],
  partial: ["\u25d0", "in part"],
  implicit: ["\u25c7", "implicit"],
  container: ["\u25cb", "container"],
  extra: ["\u25c6", "in the set, not used by the application"],
  failed: ["!", "failed by its writer"],
  leftOut: ["\u2715", "left out"],
  other: ["\u2013", "other application"],
};

const shown = (text) => String(text ?? "").replace(HIDING, "\ufffd");

function make(tag, attributes, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== null && value !== undefined) element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

const counted = (count, noun) => `${count.toLocaleString("en")} ${noun}${count === 1 ? "" : "s"}`;
const union = (...lists) => [...new Set(lists.flat())];

const order = new Intl.Collator("en", { numeric: true });

function stateCell(state, word) {
  const glyph = make("span", { class: "glyph", "aria-hidden": "true" }, STATES[state][0]);
  return make("span", { class: `state is-${state}` }, glyph, word);
}

function cellOf(column, row) {
  const content = column.cell ? column.cell(row) : row.texts[column.key];
  if (column.isHeading) return make("th", { scope: "row", role: "rowheader" }, content);
  return make("td", { role: "cell", "data-label": column.name, class: column.className }, content);
}

class DataTable {
  constructor(place, name, columns, rows) {
    this.columns = columns;
    this.rows = rows;
    this.found = rows;
    this.first = 0;
    this.sorted = { column: null, descending: false };
    for (const row of rows) row.hay = Object.values(row.texts).join("\n").toLowerCase();
    this.body = make("tbody", { role: "rowgroup" });
    this.heads = columns.map((column) => this.head(column));
    const table = make("table", { class: "data", role: "table" },
      make("caption", { class: "hidden" }, name),
      make("thead", { role: "rowgroup" }, make("tr", { role: "row" }, ...this.heads)), this.body);
    const region = make("div", { class: "scroll", role: "group", "aria-label": name, tabindex: "0" }, table);
    place.append(this.controls(name), region, this.pager());
    this.show();
  }

  head(column) {
    const button = make("button", { type: "button", class: "sort" }, column.name);
    button.addEventListener("click", () => this.sortBy(column));
    return make("th", { scope: "col", role: "columnheader", "aria-sort": "none" }, button);
  }

  controls(name) {
    this.text = make("input", { type: "search", autocomplete: "off", spellcheck: "false" });
    this.state = make("select", {}, make("option", { value: "" }, "all"));
    for (const word of union(this.rows.map((row) => row.texts.state))) {
      this.state.append(make("option", { value: word }, word));
    }
    this.count = make("p", { class: "count", role: "status" });
    this.text.addEventListener("input", () => this.filter());
    this.state.addEventListener("change", () => this.filter());
    return make("div", { class: "controls", role: "group", "aria-label": name },
      make("label", {}, "Filter", this.text), make("label", {}, "State", this.state), this.count);
  }

  pager() {
    this.previous = make("button", { type: "button" }, "Previous");
    this.next = make("button", { type: "button" }, "Next");
    this.range = make("span", {});
    this.previous.addEventListener("click", () => this.turn(-ROWS));
    this.next.addEventListener("click", () => this.turn(ROWS));
    this.pages = make("div", { class: "pager" }, this.previous, this.range, this.next);
    return this.pages;
  }

  turn(by) {
    this.first = Math.max(0, Math.min(this.first + by, this.found.length - 1));
    this.show();
  }

  filter() {
    const words = this.text.value.toLowerCase().split(/\s+/).filter(Boolean);
    const state = this.state.value;
    this.found = this.rows.filter((row) =>
      (!state || row.texts.state === state) && words.every((word) => row.hay.includes(word)));
    this.first = 0;
    this.show();
  }

  only(text, state) {
    this.text.value = text;
    this.state.value = state;
    this.filter();
    this.text.focus();
  }

  sortBy(column) {
    const descending = this.sorted.column === column && !this.sorted.descending;
    this.sorted = { column, descending };
    const sign = descending ? -1 : 1;
    this.rows.sort((a, b) => sign * order.compare(a.texts[column.key], b.texts[column.key]));
    this.columns.forEach((other, i) => {
      const direction = descending ? "descending" : "ascending";
      this.heads[i].setAttribute("aria-sort", other === column ? direction : "none");
    });
    this.filter();
  }

  show() {
    const rows = this.found.slice(this.first, this.first + ROWS);
    this.body.replaceChildren(...rows.map((row) =>
      make("tr", { role: "row" }, ...this.columns.map((column) => cellOf(column, row)))));
    const all = this.rows.length.toLocaleString("en");
    const found = this.found.length.toLocaleString("en");
    this.count.textContent = found === all ? `${all} rows` : `${found} of ${all} rows`;
    this.range.textContent = rows.length
      ? `${(this.first + 1).toLocaleString("en")} to ${(this.first + rows.length).toLocaleString("en")} of ${found}` : "";
    this.previous.disabled = this.first === 0;
    this.next.disabled = this.first + ROWS >= this.found.length;
    this.pages.hidden = this.found.length <= ROWS;
  }
}

const stateColumn = { name: "State", key: "state", cell: (row) => stateCell(row.state, row.texts.state) };

