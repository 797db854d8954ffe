// Folders of a fleet's runs, made of the document of one host.
import { mkdirSync, rmSync, writeFileSync } from "node:fs";
import { dirname, join } from "node:path";

const DAY = 24 * 60 * 60 * 1000;
const FIRST = Date.UTC(2026, 10, 1, 22);

// What becomes of a host by its number; of every other one a set is taken.
const TROUBLES = new Map([
  [3, { outcome: "failed", message: "SqlServerWriter failed to freeze. Wait ten minutes, then try again." }],
  [5, { outcome: "unreachable", message: "no route to host" }],
  [7, { outcome: "hung", message: "no answer within 600 seconds. Look at the host's event log." }],
  [11, { outcome: "refused", message: "the plan says that nothing would be captured" }],
]);

export const nameOf = (number) => `sql-${String(number).padStart(4, "0")}`;

function write(file, value) {
  mkdirSync(dirname(file), { recursive: true });
  writeFileSync(file, JSON.stringify(value));
}

// Of every third host one database in ten has its log on a disk outside the set.
function documentOf(template, number, start, databases) {
  const objects = Array.from({ length: databases }, (_, i) => {
    const isOut = number % 3 === 0 && i % 10 === 9;
    return {
      ...template.objects[0],
      name: `${nameOf(number)}\\database${i}`,
      path: `\\${nameOf(number)}\\database${i}`,
      captured: !isOut,
      reason: isOut ? "diskNotInSet" : null,
      why: isOut ? "not in the protection set: disk \"TSL0003\" (add it with --disk TSL0003)" : null,
    };
  });
  const captured = objects.filter((object) => object.captured).length;
  return {
    ...template,
    header: { ...template.header, host: nameOf(number).toUpperCase(), start: new Date(start + number * 10).toISOString() },
    objects,
    verdict: { ...template.verdict, captured, of: databases },
  };
}

function hostOf(folder, template, number, start, databases, trouble) {
  const host = { name: nameOf(number), group: number % 2 ? "erp" : "archive", application: "sql", outcome: "taken", message: "",
    seconds: 5 + (number * 37) % 100 / 10, documents: {}, evidence: null, ...trouble };
  if (trouble) return host;
  host.documents.snapshot = `hosts/${host.name}/snapshot.json`;
  write(join(folder, host.documents.snapshot), documentOf(template, number, start, databases));
  return host;
}

/// Writes `runs` runs, a day apart, the last of which has every trouble. \param template document of a snapshot.
/// \param names other keys of hosts in fleet.json, by number.
export function makeFleet(folder, template, { hosts, databases, runs, names = {} }) {
  rmSync(folder, { recursive: true, force: true });
  for (let run = 0; run < runs; ++run) {
    const start = FIRST + run * DAY;
    const isLast = run === runs - 1;
    const runFolder = join(folder, new Date(start).toISOString().replace(/[-:]|\.\d+/g, ""));
    const entries = Array.from({ length: hosts }, (_, i) =>
      ({ ...hostOf(runFolder, template, i, start, databases, isLast ? TROUBLES.get(i) : undefined), ...names[i] }));
    const group = { mode: "rolling", onFailure: "keep", outcome: isLast ? "incomplete" : "taken", message: "" };
    write(join(runFolder, "fleet.json"), {
      schemaVersion: 1, fleet: "production", startedAt: new Date(start).toISOString(), endedAt: new Date(start + 240_000).toISOString(),
      groups: [{ name: "erp", ...group, mode: "together", consistent: "host" }, { name: "archive", ...group, consistent: "host" }],
      hosts: entries,
    });
  }
}
