// One board instance: a MicroPython interpreter whose console is the shared
// input ring (filled by the main thread) and postMessage output batches.
// Everything here is synchronous on purpose: Python code that reads stdin
// must block, exactly as on a board.
import { workerData, parentPort, receiveMessageOnPort } from "node:worker_threads";
import { createHash } from "node:crypto";
import fs from "node:fs";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { loadMicroPython } from "@micropython/micropython-webassembly-pyscript";
import { CTL, RING_SIZE, snapshotTree, restoreTree, writeTreeToHost } from "./fstree.mjs";

const kCtrlA = 0x01; // raw REPL
const kCtrlB = 0x02; // friendly REPL
const kCtrlC = 0x03; // interrupt
const kCtrlD = 0x04; // end of paste
const kCtrlE = 0x05; // paste mode
const kCR = 0x0d;
const kLF = 0x0a;
const kForcedExit = 0x100; // pyexec's "soft reset requested"
const kFlushIntervalMs = 10;
// MicroPython's raw-paste window: MICROPY_REPL_STDIN_BUFFER_MAX.
const kPasteWindow = 256;

const { config, ctlBuffer, ringBuffer } = workerData;
let snapshot = workerData.snapshot;
const ctl = new Int32Array(ctlBuffer);
const ring = new Uint8Array(ringBuffer);
const here = path.dirname(fileURLToPath(import.meta.url));
const boardlib = fs.readFileSync(path.join(here, "boardlib.py"), "utf8");

let mp = null;
let interruptPending = false;
let scannedTo = 0;
let rawMode = false;
let pasteMode = false;
let softResetRequested = false;
let executing = false; // Python code runs (as opposed to the REPL waiting for input)
let rawLine = []; // the first bytes of the raw REPL's line, to spot a raw-paste request
let swallow = []; // output the board must not show (the event REPL's "OK" in raw-paste)
const out = new Uint8Array(1 << 16);
let outLen = 0;
let lastOut = 0;
let lastFlush = Date.now();

function flush() {
  if (outLen > 0) {
    parentPort.postMessage({ type: "out", data: out.slice(0, outLen) });
    outLen = 0;
  }
  lastFlush = Date.now();
}

function emit(c) {
  // The console of a real board sends "\r\n" where Python prints "\n".
  if (c === 10 && lastOut !== 13) emitRaw(13);
  emitRaw(c);
}

function emitRaw(c) {
  if (swallow.length && c === swallow[0]) {
    swallow.shift();
    return;
  }
  swallow = [];
  out[outLen++] = c;
  lastOut = c;
  if (outLen === out.length) flush();
  if ((outLen & 63) === 0) {
    checkInterrupt();
    if (Date.now() - lastFlush > kFlushIntervalMs) flush();
  }
}

const available = () => Atomics.load(ctl, CTL.write) - Atomics.load(ctl, CTL.read);

function interruptChar() {
  return mp ? mp._module._mp_hal_get_interrupt_char() : -1;
}

function scheduleInterrupt() {
  mp._module._mp_sched_keyboard_interrupt();
  interruptPending = true;
}

// Ctrl-C reaches running code out of band, as a UART interrupt would, and the
// bytes around it stay queued for whoever reads next.
function checkInterrupt() {
  if (!executing || interruptPending || interruptChar() !== kCtrlC) return;
  const w = Atomics.load(ctl, CTL.write);
  const r = Atomics.load(ctl, CTL.read);
  let p = Math.max(r, scannedTo);
  for (; p < w; p++) {
    if (ring[p % RING_SIZE] === kCtrlC) {
      for (let i = p; i > r; i--) ring[i % RING_SIZE] = ring[(i - 1) % RING_SIZE];
      Atomics.store(ctl, CTL.read, r + 1);
      scannedTo = r + 1;
      scheduleInterrupt();
      return;
    }
  }
  scannedTo = w;
}

function handleCommands() {
  if (Atomics.load(ctl, CTL.cmdUnplug) !== 0) leave("reset");
  if (Atomics.load(ctl, CTL.cmdHardReset) !== 0) leave("reset", { keepPort: true });
  if (Atomics.load(ctl, CTL.cmdDump) !== 0) {
    Atomics.store(ctl, CTL.cmdDump, 0);
    try {
      writeTreeToHost(config.dump, snapshotTree(mp.FS));
    } catch (e) {
      process.stderr.write(`virtual-board: dump failed: ${e.message}\n`);
    }
    Atomics.add(ctl, CTL.dumpDone, 1);
    Atomics.notify(ctl, CTL.dumpDone);
  }
}

// WebREPL's file requests, served while the REPL waits at its prompt: the
// board's file system is only touched between two commands.
let fileResult = null;
function handleFileRequests() {
  if (Atomics.load(ctl, CTL.cmdFile) === 0) return;
  Atomics.store(ctl, CTL.cmdFile, 0);
  for (let m = receiveMessageOnPort(parentPort); m; m = receiveMessageOnPort(parentPort)) {
    const req = m.message;
    fileResult = { hex: "", error: "" };
    globalThis.vbWa = { hex: req.data ? Buffer.from(req.data).toString("hex") : "" };
    executing = true;
    try {
      mp.runPython(`__import__('boardlib')._vb_wa_${req.op}(${JSON.stringify(req.name)})`);
    } catch (e) {
      fileResult.error = String(e.message || e);
    }
    executing = false;
    interruptPending = false;
    globalThis.vbWa = null;
    parentPort.postMessage({ type: "file", id: req.id, ...fileResult });
  }
}

function waitForInput(timeoutMs, idle) {
  const seq = Atomics.load(ctl, CTL.seq);
  handleCommands();
  if (idle) handleFileRequests();
  if (available() > 0) return;
  flush();
  Atomics.wait(ctl, CTL.seq, seq, timeoutMs);
  handleCommands();
  if (idle) handleFileRequests();
}

// Blocking read of one console byte; null ends a read early after Ctrl-C.
// idle: the REPL waits for its next command.
function readByte(forCode, idle = false) {
  for (;;) {
    if (forCode && interruptPending) return null;
    if (available() > 0) {
      const r = Atomics.load(ctl, CTL.read);
      const b = ring[r % RING_SIZE];
      Atomics.store(ctl, CTL.read, r + 1);
      if (forCode && b === kCtrlC && interruptChar() === kCtrlC) {
        scheduleInterrupt();
        return null;
      }
      return b;
    }
    waitForInput(200, idle);
  }
}

function sleepMs(ms) {
  const end = Date.now() + Math.max(0, ms);
  flush();
  for (;;) {
    checkInterrupt();
    if (interruptPending) return;
    const left = end - Date.now();
    if (left <= 0) return;
    const seq = Atomics.load(ctl, CTL.seq);
    handleCommands();
    Atomics.wait(ctl, CTL.seq, seq, Math.min(left, 50));
  }
}

const hashes = new Map();
let nextHash = 1;

function leave(type, extra = {}) {
  flush();
  parentPort.postMessage({ type, snapshot: snapshotTree(mp.FS), ...extra });
  // The main thread ends this worker; nothing may run after a reset.
  for (;;) Atomics.wait(ctl, CTL.never, 0);
}

globalThis.vbConfig = {
  flavour: config.flavour,
  entries: config.entries,
  hash: config.hash,
  stockPyb: !!config.stockPyb,
  noDeflate: !!config.noDeflate,
  inflateOom: !!config.inflateOom,
  flashMs: config.flashMs || 0,
  eraseMs: config.eraseMs || 0,
  noRawStdio: !!config.noRawStdio,
  fs: config.fs || "littlefs",
  flashSize: config.flashSize || 0,
  errnoNames: !!config.errnoNames,
  crashInRename: !!config.crashInRename,
  ...config.uname,
};
globalThis.vbHost = {
  sleep: (ms) => sleepMs(ms),
  reset(kind) {
    if (kind !== "soft") leave("reset");
    softResetRequested = true;
    scheduleInterrupt();
  },
  dfu: () => leave("dfu"),
  // Flash busy (an erase): the board reads no input meanwhile.
  busy(ms) {
    flush();
    Atomics.wait(ctl, CTL.never, 0, Math.max(0, ms));
    handleCommands();
  },
  // sys.stdout.buffer: bytes as they are, no "\r" before "\n".
  inputReady(ms) {
    if (available() === 0) waitForInput(ms, false);
    return available() > 0;
  },
  rawOut(hex) {
    for (const b of Buffer.from(hex, "hex")) emitRaw(b);
  },
  crash: () => leave("reset", { keepPort: true, crashed: true }),
  hashNew(algo) {
    const id = nextHash++;
    hashes.set(id, createHash(algo));
    return id;
  },
  hashUpdate(id, hex) {
    hashes.get(id).update(Buffer.from(hex, "hex"));
  },
  fileDone(hex, error) {
    fileResult = { hex, error };
  },
  hashDigest(id) {
    const digest = hashes.get(id).digest("hex");
    hashes.delete(id);
    return digest;
  },
};

async function boot(entries) {
  mp = await loadMicroPython({
    stdin: () => readByte(true),
    stdout: (bytes) => emit(bytes[0]),
    stderr: (bytes) => emit(bytes[0]),
    linebuffer: false,
    heapsize: config.heap,
  });
  mp.FS.mkdir("/board");
  mp.FS.mkdir("/vbhost");
  restoreTree(mp.FS, entries);
  mp.FS.writeFile("/vbhost/boardlib.py", boardlib);
  mp.runPython("import sys\nsys.path.insert(0, '/vbhost')\nimport boardlib\ndel sys");
  if (config.banner && config.flavour === "esp32") {
    // What the ESP32's ROM prints after a reset behind a USB-serial bridge.
    for (const b of Buffer.from("ets Jul 29 2019 12:21:46\r\n\r\nrst:0xc (SW_CPU_RESET),boot:0x13 (SPI_FAST_FLASH_BOOT)\r\n")) emitRaw(b);
  }
  interruptPending = false;
  executing = true;
  mp.runPython("__import__('boardlib')._vb_boot()");
  executing = false;
  interruptPending = false;
  mp.replInit();
  flush();
}

async function softReset() {
  const entries = snapshotTree(mp.FS);
  for (const b of Buffer.from("MPY: soft reboot\r\n")) emitRaw(b);
  flush();
  // A soft reset closes the WebREPL socket.
  parentPort.postMessage({ type: "softreset" });
  await boot(entries);
}

// Raw-paste mode as MicroPython's own raw REPL has it: the code arrives in
// windows of kPasteWindow bytes, each granted with 0x01 once the last is read.
function rawPaste() {
  mp.replProcessChar(kCtrlC); // forget the Ctrl-E "A" already in the line
  for (const b of [0x52, 0x01, kPasteWindow & 0xff, kPasteWindow >> 8]) emitRaw(b);
  flush();
  let remain = kPasteWindow;
  for (;;) {
    const b = readByte(false);
    if (b === kCtrlD) break;
    if (b === kCtrlC) {
      emitRaw(kCtrlD);
      mp.replProcessChar(kCtrlC);
      for (const c of Buffer.from("\r\n>")) emitRaw(c);
      flush();
      return 0;
    }
    mp.replProcessChar(b);
    if (--remain === 0) {
      emitRaw(0x01);
      flush();
      remain = kPasteWindow;
    }
  }
  emitRaw(kCtrlD);
  flush();
  swallow = [0x4f, 0x4b]; // "OK", which the paste does not print
  return feed(kCtrlD);
}

function feed(byte) {
  if (rawMode && byte === kCtrlA && rawLine.length === 2 && rawLine[0] === kCtrlE && rawLine[1] === 0x41) {
    rawLine = [];
    return rawPaste();
  }
  if (rawMode && byte > kCtrlD) {
    if (rawLine.length < 2) rawLine.push(byte);
    else if (rawLine.length === 2) rawLine.push(byte);
  } else {
    rawLine = [];
  }
  if (byte === kCtrlA) rawMode = true;
  else if (byte === kCtrlB) rawMode = false;
  if (!rawMode && byte === kCtrlE) pasteMode = true;
  else if (byte === kCtrlD || byte === kCtrlC) pasteMode = false;
  // The unix port reads a typed LF as Enter too.
  if (config.lfEnter && byte === kLF && !rawMode && !pasteMode) byte = kCR;
  executing = true;
  const result = mp.replProcessChar(byte);
  executing = false;
  interruptPending = false;
  return result;
}

await boot(snapshot);
snapshot = null;
parentPort.postMessage({ type: "ready" });
for (;;) {
  const b = readByte(false, true);
  if (feed(b) & kForcedExit || softResetRequested) {
    softResetRequested = false;
    const wasRaw = rawMode;
    await softReset();
    if (wasRaw) feed(kCtrlA);
  }
}
