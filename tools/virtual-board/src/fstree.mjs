// File trees as lists of [relative path, bytes | null for a folder], shared by
// the board (Emscripten FS under /board) and the host side (seed and dump).
import fs from "node:fs";
import path from "node:path";

export const RING_SIZE = 1 << 22;
export const CTL = { write: 0, read: 1, seq: 2, cmdDump: 3, dumpDone: 4, never: 5, cmdUnplug: 6, cmdHardReset: 7, cmdFile: 8, size: 9 };

export function snapshotTree(FS, root = "/board") {
  const entries = [];
  const walk = (dir, rel) => {
    for (const name of FS.readdir(dir).sort()) {
      if (name === "." || name === "..") continue;
      const full = `${dir}/${name}`;
      const relPath = rel ? `${rel}/${name}` : name;
      if (FS.isDir(FS.stat(full).mode)) {
        entries.push([relPath, null]);
        walk(full, relPath);
      } else {
        entries.push([relPath, FS.readFile(full)]);
      }
    }
  };
  walk(root, "");
  return entries;
}

export function restoreTree(FS, entries, root = "/board") {
  for (const [rel, data] of entries || []) {
    const full = `${root}/${rel}`;
    if (data === null) FS.mkdirTree(full);
    else FS.writeFile(full, data);
  }
}

export function readHostTree(dir) {
  const entries = [];
  const walk = (abs, rel) => {
    for (const name of fs.readdirSync(abs).sort()) {
      const full = path.join(abs, name);
      const relPath = rel ? `${rel}/${name}` : name;
      if (fs.statSync(full).isDirectory()) {
        entries.push([relPath, null]);
        walk(full, relPath);
      } else {
        entries.push([relPath, new Uint8Array(fs.readFileSync(full))]);
      }
    }
  };
  walk(dir, "");
  return entries;
}

// Writes into a fresh folder and swaps it in, so a reader never sees half a dump.
export function writeTreeToHost(dir, entries) {
  const fresh = `${dir}.new`;
  fs.rmSync(fresh, { recursive: true, force: true });
  fs.mkdirSync(fresh, { recursive: true });
  for (const [rel, data] of entries) {
    const full = path.join(fresh, rel);
    if (data === null) fs.mkdirSync(full, { recursive: true });
    else {
      fs.mkdirSync(path.dirname(full), { recursive: true });
      fs.writeFileSync(full, data);
    }
  }
  fs.rmSync(dir, { recursive: true, force: true });
  fs.renameSync(fresh, dir);
}
