// Fills the tables of a fleet from the data of its page.
(() => {
  "use strict";

  const data = document.querySelector("script.fleet-data");
  if (!data) return;
  const { states, texts, hosts, objects } = JSON.parse(data.textContent);
  const textOf = (number) => shown(texts[number] ?? "");

  // The fields of a row stand in the order of HostRow and ObjectRow (fleet_data.cpp).
  function hostRow([name, group, state, why, taken, of, set, documentTime, duration, links]) {
    const [sign, word] = states[state];
    return {
      state: sign,
      links,
      texts: {
        name: shown(name),
        group: shown(group),
        state: word,
        count: of ? `${taken} of ${of}` : "",
        set: textOf(set).replace(/ UTC$/, ""),
        duration: duration ?? "",
        why: textOf(why),
        document: textOf(documentTime),
      },
    };
  }

  const since = (host, state, last) => {
    if (states[state][0] === "captured") return host.texts.set && `since ${host.texts.set} UTC`;
    return last === undefined ? "" : `until ${textOf(last)}`;
  };

  function objectRow([host, name, state, why, last, run], rows) {
    const [sign, word] = states[state];
    const earlier = run === undefined ? "" : `last taken in the run of ${textOf(run)}`;
    return {
      state: sign,
      texts: {
        name: shown(name),
        host: rows[host].texts.name,
        state: word,
        since: since(rows[host], state, last),
        why: [textOf(why), earlier].filter(Boolean).join("; "),
      },
    };
  }

  function documentsCell(row) {
    const links = row.links.map(([label, href]) => make("a", { href }, shown(label)));
    return make("span", {}, make("span", { class: "documents" }, ...links), make("span", { class: "caption" }, row.texts.document));
  }

  const placeOf = (kind) => document.querySelector(`[data-fill=${kind}]`);
  const rows = hosts.map(hostRow);
  const place = placeOf("objects");
  const heading = place?.parentElement.querySelector("h2").textContent;
  const table = place && new DataTable(place, heading, [
    { name: "Name", key: "name", isHeading: true },
    { name: "Host", key: "host" },
    stateColumn,
    { name: "Protected", key: "since" },
    { name: "Why not, and what to do", key: "why", className: "why" },
  ], objects.map((object) => objectRow(object, rows)));

  // A host leads to what it has.
  function hostCell(row) {
    if (!table || !row.texts.count) return row.texts.name;
    const button = make("button", { type: "button", class: "host" }, row.texts.name);
    button.addEventListener("click", () => table.only(row.texts.name, ""));
    return button;
  }

  new DataTable(placeOf("hosts"), "Hosts", [
    { name: "Host", key: "name", isHeading: true, cell: hostCell },
    { name: "Group", key: "group" },
    stateColumn,
    { name: heading ?? "Protected", key: "count", className: "moment" },
    { name: "Set of (UTC)", key: "set", className: "moment" },
    { name: "Last step", key: "duration", className: "moment" },
    { name: "Why not, and what to do", key: "why", className: "why" },
    { name: "Documents", key: "document", cell: documentsCell },
  ], rows);
})();
