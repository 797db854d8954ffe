// Fills the map and the tables of each run from the run's own document. Every text of it becomes the text of an element,
// never markup.
(() => {
  "use strict";

  const MOST_NODES = 40; // components that the map shows one by one

  function appendTo(lists, key, value) {
    if (!lists.has(key)) lists.set(key, []);
    lists.get(key).push(value);
  }

  // ---- what the document says ----

  const isTaken = (run) => run.kind === "snapshot" && !run.verdict.text.startsWith("FAILED");

  // What was to be captured is called selected where nothing was.
  const wordOf = (state, run) => (state === "captured" && !isTaken(run) ? "selected" : STATES[state][1]);

  function stateOf(component) {
    if (component.failed && component.failureCode !== "0x00000000") return "failed";
    if (component.place === undefined) return "other";
    return Object.hasOwn(STATES, component.place) ? component.place : "leftOut";
  }

  function reasonOf(component) {
    const parts = [component.why ?? component.reason];
    if (component.because && component.place === "implicit") parts.push(`because of ${component.because}`);
    if (component.because && component.place === "withParent") parts.push(`with ${component.because}`);
    if (stateOf(component) === "failed") parts.push(`its writer answered ${component.failureCode}`);
    return shown(parts.filter(Boolean).join("; "));
  }

  const nameOf = (component) => shown(component.caption || component.fullPath);
  const disksOf = (component) => union(component.disks, component.missingDisks ?? []);

  // ---- tables of a run ----

  function objectRow(object, run, components) {
    const state = object.captured ? "captured" : object.failed ? "failed" : object.reason ? "leftOut" : "other";
    const isNothing = state === "other"; // of a request that failed
    return {
      state,
      texts: {
        name: shown(object.name),
        writer: shown(object.writer),
        state: isNothing ? "not captured" : wordOf(state, run),
        why: shown(object.why ?? object.reason ?? "") || (state === "failed" ? whyFailed(object, components) : ""),
        disks: object.disks.map(shown).join(", "),
      },
    };
  }

  const keyOf = (writer, path) => `${writer}\n${path}`;

  function componentsByKey(run) {
    const components = new Map();
    for (const writer of run.writers) {
      for (const component of writer.components) components.set(keyOf(writer.name, component.fullPath), component);
    }
    return components;
  }

  function whyFailed(object, components) {
    const component = components.get(keyOf(object.writer, object.path));
    return component ? reasonOf(component) : "";
  }

  function fillObjects(place, run, name) {
    const components = componentsByKey(run);
    new DataTable(place, name, [
      { name: "Name", key: "name", isHeading: true },
      stateColumn,
      { name: "Why", key: "why", className: "why" },
      { name: "Disks", key: "disks" },
      { name: "Writer", key: "writer" },
    ], run.objects.map((object) => objectRow(object, run, components)));
  }

  function componentRow(component, writer, run) {
    const state = stateOf(component);
    return {
      state,
      caption: shown(component.caption),
      texts: {
        path: shown(component.fullPath),
        caption: shown(component.caption),
        writer: shown(writer.name),
        state: wordOf(state, run),
        why: reasonOf(component) || (state === "other" ? shown(writer.why ?? writer.reason ?? "") : ""),
        disks: disksOf(component).map(shown).join(", "),
      },
    };
  }

  function pathCell(row) {
    const cell = make("span", {}, row.texts.path);
    if (row.caption) cell.append(make("span", { class: "caption" }, row.caption));
    return cell;
  }

  function fillComponents(place, run, name) {
    const ownFirst = [...run.writers].sort((a, b) => (a.reason !== null) - (b.reason !== null));
    const rows = ownFirst.flatMap((writer) =>
      writer.components.map((component) => componentRow(component, writer, run)));
    return new DataTable(place, name, [
      { name: "Component", key: "path", isHeading: true, cell: pathCell },
      stateColumn,
      { name: "Why", key: "why", className: "why" },
      { name: "Disks", key: "disks" },
      { name: "Writer", key: "writer" },
    ], rows);
  }

  // ---- the map ----

  class Graph {
    constructor() {
      this.columns = [["Writers", []], ["Components", []], ["Volumes", []], ["Disks", []], ["Shadow copies", []]];
      this.nodes = new Map();
      this.drawn = [];
    }

    add(column, key, node) {
      if (!this.nodes.has(key)) {
        this.nodes.set(key, { key, column, left: new Set(), right: new Set(), beside: new Set(), ...node });
        this.columns[column][1].push(this.nodes.get(key));
      }
      return this.nodes.get(key);
    }

    link(left, right, isDrawn = true) {
      if (left.right.has(right)) return;
      left.right.add(right);
      right.left.add(left);
      if (isDrawn) this.drawn.push([left, right]);
    }

    // A disk and a copy on it belong together by their volume only.
    linkBeside(left, right) {
      left.beside.add(right);
      right.beside.add(left);
      this.drawn.push([left, right]);
    }

    relatedTo(start) {
      const related = new Set([start, ...start.beside]);
      for (const side of ["left", "right"]) {
        const open = [start];
        while (open.length) {
          for (const node of open.pop()[side]) {
            if (!related.has(node)) open.push(node);
            related.add(node);
          }
        }
      }
      return related;
    }
  }

  const isInSet = (state) => state !== "leftOut" && state !== "other";

  // The volumes of the set by their unique names.
  function setVolumes(run) {
    const volumes = new Map();
    for (const copy of run.snapshots ?? []) {
      volumes.set(copy.volume, { mountPoint: copy.mountPoint, disk: copy.sourceSerialNumber, copy });
    }
    for (const volume of run.volumes ?? []) {
      volumes.set(volume.volume, { mountPoint: volume.mountPoint, disk: volume.serialNumber, extra: volume.extra });
    }
    return volumes;
  }

  function addDisk(graph, run, serialNumber) {
    const isAsked = (run.header.disks ?? []).includes(serialNumber);
    return graph.add(3, `disk ${serialNumber}`, {
      label: shown(serialNumber),
      state: isAsked ? "captured" : "leftOut",
      word: isAsked ? "in the set" : "not in the set",
      why: isAsked ? "asked for" : "not asked for",
    });
  }

  function addVolume(graph, run, name, known) {
    const earlier = graph.nodes.get(`volume ${name}`);
    if (earlier) return earlier;
    const isThere = known !== undefined;
    const node = graph.add(2, `volume ${name}`, {
      label: shown(known?.mountPoint || name.replace(/^\\\\\?\\Volume(\{\w*).*$/, "$1\u2026}")),
      state: isThere ? (known.extra ? "extra" : "captured") : "leftOut",
      word: isThere ? (known.extra ? STATES.extra[1] : "in the set") : "not in the set",
      why: shown(name),
    });
    if (known?.disk) graph.link(node, addDisk(graph, run, known.disk));
    if (known?.copy) addCopy(graph, run, node, known);
    return node;
  }

  function addCopy(graph, run, volume, { copy, disk }) {
    if (!copy.snapshotId) return;
    const isGone = run.setState === "deleted";
    const device = shown(copy.device).replace(/\\$/, "").replace(/^.*\\/, "");
    const node = graph.add(4, `copy ${copy.snapshotId}`, {
      label: device || "shadow copy",
      state: isGone ? "leftOut" : "captured",
      word: isGone ? "deleted" : device ? "there" : "not surfaced on this host",
      why: shown([copy.snapshotId, copy.serialNumber && `disk "${copy.serialNumber}"`].filter(Boolean).join(", ")),
    });
    graph.link(volume, node, !disk);
    if (disk) graph.linkBeside(addDisk(graph, run, disk), node);
  }

  // Alike components are one node where there are too many.
  function groupsOf(writer, together) {
    const groups = new Map();
    writer.components.forEach((component, index) => {
      const alike = [stateOf(component), component.reason, component.volumes, component.missingDisks];
      appendTo(groups, together ? JSON.stringify(alike) : index, component);
    });
    return [...groups.values()];
  }

  function componentNode(group, run) {
    const state = stateOf(group[0]);
    const many = group.length > 1;
    return {
      label: many ? counted(group.length, "component") : nameOf(group[0]),
      state,
      word: wordOf(state, run),
      why: many ? reasonOf({ ...group[0], because: null }) : [reasonOf(group[0]), group[0].caption && shown(group[0].fullPath)].filter(Boolean).join("; "),
      group: many ? state : null,
    };
  }

  // A volume outside the set is on the one disk of the component that is no other volume's.
  function linkOutside(graph, run, component, node, volumes) {
    const names = component.volumes ?? [];
    const known = names.map((name) => volumes.get(name)?.disk).filter(Boolean);
    const outside = names.filter((name) => !volumes.has(name));
    const rest = disksOf(component).filter((disk) => !known.includes(disk));
    for (const disk of rest) {
      const volume = outside.length === 1 && rest.length === 1 ? graph.nodes.get(`volume ${outside[0]}`) : node;
      graph.link(volume, addDisk(graph, run, disk));
    }
  }

  function addComponents(graph, run, writer, writerNode, volumes, together) {
    groupsOf(writer, together).forEach((group, index) => {
      const node = graph.add(1, `component ${writerNode.key} ${index}`, componentNode(group, run));
      graph.link(writerNode, node);
      for (const name of group[0].volumes ?? []) graph.link(node, addVolume(graph, run, name, volumes.get(name)));
      linkOutside(graph, run, group[0], node, volumes);
    });
  }

  function writerState(writer) {
    const states = writer.components.map(stateOf);
    if (states.includes("failed")) return ["failed", "failed for some"];
    if (states.every(isInSet)) return ["captured", "takes part"];
    return states.some(isInSet) ? ["partial", "in part"] : ["leftOut", "left out"];
  }

  function graphOf(run) {
    const graph = new Graph();
    const volumes = setVolumes(run);
    const others = run.writers.filter((writer) => writer.reason !== null);
    const own = run.writers.filter((writer) => writer.reason === null);
    const together = own.reduce((sum, writer) => sum + writer.components.length, 0) > MOST_NODES;
    own.forEach((writer, index) => {
      const [state, word] = writerState(writer);
      const node = graph.add(0, `writer ${index}`, { label: shown(writer.name), state, word, why: counted(writer.components.length, "component") });
      addComponents(graph, run, writer, node, volumes, together);
    });
    if (others.length) {
      graph.add(0, "others", {
        label: counted(others.length, "other writer"), state: "other", word: "left out",
        why: others.map((writer) => `${shown(writer.name)}: ${shown(writer.why ?? writer.reason)}`).join("; "),
      });
    }
    for (const [name, known] of volumes) addVolume(graph, run, name, known);
    for (const disk of run.header.disks ?? []) addDisk(graph, run, disk);
    return graph;
  }

  class MapView {
    constructor(place, run, level, onGroup) {
      this.graph = graphOf(run);
      this.onGroup = onGroup;
      this.detail = make("p", { class: "detail" }, "Point at, tap or tab to anything to see what belongs to it and why it is there.");
      this.lines = document.createElementNS("http://www.w3.org/2000/svg", "svg");
      this.lines.setAttribute("class", "lines");
      this.lines.setAttribute("aria-hidden", "true");
      const columns = this.graph.columns.filter(([, nodes]) => nodes.length);
      this.root = make("div", { class: "map" }, ...columns.map(([name, nodes]) => this.column(name, nodes, level)), this.lines);
      place.append(this.detail, this.root, this.legend(run));
      this.root.addEventListener("mouseleave", () => this.choose(this.focused()));
      this.root.addEventListener("keydown", (event) => this.move(event));
      new ResizeObserver(() => this.draw()).observe(this.root);
      this.draw();
    }

    column(name, nodes, level) {
      const items = nodes.map((node) => make("li", {}, this.button(node)));
      return make("div", {}, make(`h${level}`, {}, name), make("ol", {}, ...items));
    }

    button(node) {
      const glyph = make("span", { class: "glyph", "aria-hidden": "true" }, STATES[node.state][0]);
      node.element = make("button", { type: "button", class: `node is-${node.state}` },
        make("span", { class: "label" }, node.label),
        make("span", { class: "state" }, glyph, node.word),
        make("span", { class: "hidden" }, node.why ? `: ${node.why}` : ""));
      node.element.addEventListener("mouseenter", () => this.choose(node));
      node.element.addEventListener("focus", () => this.choose(node));
      node.element.addEventListener("click", () => { this.choose(node); if (node.group) this.onGroup(node.word); });
      return node.element;
    }

    legend(run) {
      const used = union([...this.graph.nodes.values()].map((node) => node.state));
      const items = Object.keys(STATES).filter((state) => used.includes(state));
      return make("ul", { class: "legend" }, ...items.map((state) => make("li", {}, stateCell(state, wordOf(state, run)))));
    }

    focused() {
      return [...this.graph.nodes.values()].find((node) => node.element === document.activeElement) ?? null;
    }

    choose(chosen) {
      const related = chosen ? this.graph.relatedTo(chosen) : new Set();
      this.root.classList.toggle("choosing", chosen !== null);
      for (const node of this.graph.nodes.values()) {
        node.element.classList.toggle("related", related.has(node));
        node === chosen ? node.element.setAttribute("aria-current", "true") : node.element.removeAttribute("aria-current");
      }
      this.graph.drawn.forEach(([left, right], i) => {
        this.lines.children[i]?.classList.toggle("related", related.has(left) && related.has(right));
      });
      if (chosen) this.detail.replaceChildren(make("strong", {}, chosen.label), ` \u2013 ${chosen.word}${chosen.why ? `: ${chosen.why}` : ""}`);
    }

    // Up and down within a column, left and right to what belongs to the node.
    move(event) {
      const node = this.focused();
      if (!node) return;
      const column = this.graph.columns[node.column][1];
      const at = column.indexOf(node);
      const next = {
        ArrowUp: () => column[at - 1],
        ArrowDown: () => column[at + 1],
        ArrowLeft: () => [...node.left][0],
        ArrowRight: () => [...node.right, ...node.beside].find((other) => other.column > node.column),
      }[event.key]?.();
      if (!next) return;
      event.preventDefault();
      next.element.focus();
    }

    draw() {
      const origin = this.root.getBoundingClientRect();
      const paths = this.graph.drawn.map(([left, right]) => {
        const a = left.element.getBoundingClientRect();
        const b = right.element.getBoundingClientRect();
        const [x1, y1] = [a.right - origin.left, a.top + a.height / 2 - origin.top];
        const [x2, y2] = [b.left - origin.left, b.top + b.height / 2 - origin.top];
        const half = (x1 + x2) / 2;
        const path = document.createElementNS("http://www.w3.org/2000/svg", "path");
        path.setAttribute("d", `M${x1} ${y1}C${half} ${y1} ${half} ${y2} ${x2} ${y2}`);
        if (!isInSet(left.state) || !isInSet(right.state)) path.setAttribute("class", "out");
        return path;
      });
      this.lines.replaceChildren(...paths);
    }
  }

  // ---- the log ----

  const LEVELS = [["V", "everything"], ["I", "information and worse"], ["W", "warnings and errors"], ["E", "errors"]];
  const BEGIN = /^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ([VIWE]) /;
  const rankOf = (letter) => LEVELS.findIndex(([known]) => known === letter);

  // A text of several lines has the level of its first.
  function entriesOf(log) {
    const entries = [];
    for (const line of log.split(/\r?\n/).filter(Boolean)) {
      const level = BEGIN.exec(line)?.[1];
      if (level || !entries.length) entries.push({ rank: rankOf(level ?? "I"), text: shown(line) });
      else entries.at(-1).text += `\n${shown(line)}`;
    }
    for (const entry of entries) entry.hay = entry.text.toLowerCase();
    return entries;
  }

  function fillLog(place, log) {
    const entries = entriesOf(log);
    const text = make("input", { type: "search", autocomplete: "off", spellcheck: "false" });
    const level = make("select", {}, ...LEVELS.map(([letter, words]) => make("option", { value: letter }, words)));
    const count = make("p", { class: "count", role: "status" });
    const lines = make("pre", { class: "log-lines", tabindex: "0", role: "group", "aria-label": "Lines of the log" });
    const show = () => {
      const words = text.value.toLowerCase().split(/\s+/).filter(Boolean);
      const found = entries.filter((entry) =>
        entry.rank >= rankOf(level.value) && words.every((word) => entry.hay.includes(word)));
      lines.textContent = found.map((entry) => entry.text).join("\n");
      count.textContent = `${found.length.toLocaleString("en")} of ${counted(entries.length, "line")}`;
    };
    text.addEventListener("input", show);
    level.addEventListener("change", show);
    level.value = entries.some((entry) => entry.rank >= rankOf("W")) ? "W" : "I";
    place.append(make("div", { class: "controls", role: "group", "aria-label": "Log" },
      make("label", {}, "Filter", text), make("label", {}, "Level", level), count), lines);
    show();
  }

  // ---- the page ----

  function fill(article) {
    const places = new Map([...article.querySelectorAll("[data-fill]")].map((place) => [place.dataset.fill, place]));
    if (!places.size || article.dataset.filled) return;
    if (places.has("log")) fillLog(places.get("log"), JSON.parse(article.querySelector("script.log-text").textContent));
    if (!places.has("map")) return;
    article.dataset.filled = "yes";
    const run = JSON.parse(article.querySelector("script.document").textContent);
    const headingOf = (place) => place.parentElement.querySelector("h2, h3");
    if (places.has("objects")) fillObjects(places.get("objects"), run, headingOf(places.get("objects")).textContent);
    const table = fillComponents(places.get("components"), run, "Components");
    const level = Number(headingOf(places.get("map")).tagName[1]) + 1;
    new MapView(places.get("map"), run, level, (word) => table.only("", word));
  }

  function fillWithin(details) {
    if (details.open) details.querySelectorAll("article.run").forEach(fill);
  }

  function openTarget() {
    const details = location.hash && document.getElementById(location.hash.slice(1))?.closest("details.earlier");
    if (details) details.open = true;
  }

  for (const article of document.querySelectorAll("article.run")) {
    const details = article.closest("details.earlier");
    details ? details.addEventListener("toggle", () => fillWithin(details)) : fill(article);
  }
  openTarget();
  addEventListener("hashchange", openTarget);

  let closed = [];
  addEventListener("beforeprint", () => {
    closed = [...document.querySelectorAll(".record details:not([open])")];
    for (const details of closed) details.open = true;
  });
  addEventListener("afterprint", () => { for (const details of closed) details.open = false; });
})();
