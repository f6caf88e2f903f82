// The virtual board's supervisor: owns the pseudo-terminal relay, paces and
// corrupts the byte streams on request, and restarts the board after resets.
import { Worker } from "node:worker_threads";
import { spawn } from "node:child_process";
import path from "node:path";
import fs from "node:fs";
import { fileURLToPath } from "node:url";
import http from "node:http";
import { WebSocketServer } from "ws";
import { CTL, RING_SIZE, readHostTree, writeTreeToHost } from "./fstree.mjs";

const here = path.dirname(fileURLToPath(import.meta.url));
const kPortAppearsMs = 1000;
const kTickMs = 1;
const kMaxBurst = 64;
const kShutdownLimitMs = 8000;
const kDumpWaitMs = 5000;

const USAGE = `usage: virtual-board [options]
  --flavour stm32|esp32   board type (default stm32)
  --link PATH             where the device appears (default /tmp/pelkam-vboard-<pid>)
  --baud N                pace both directions like a UART at N baud (0 = unpaced, default)
  --seed DIR              initial board files (copied to /flash or /)
  --dump DIR              write the board's files here on exit and on SIGUSR1
                          (SIGUSR2 unplugs the board: the port is gone for the
                          reset delay, then the board boots again)
  --hash md5|sha1|none    digests offered by hashlib (default md5: md5 and sha1)
  --entries 3|4           elements per os.ilistdir entry (default 4)
  --reset-delay MS        how long the port stays away after a reset (default 300)
  --uname KEY=VALUE       override a field of os.uname() (sysname, nodename,
                          release, version, machine); may repeat
  --heap BYTES            MicroPython heap size (default 262144)
  --lf-enter              the friendly REPL takes LF as a second Enter, as the
                          unix port does ("\\r\\n" gives two prompts)
  --stock-pyb             STM32: pyb as upstream MicroPython has it (no FlashWriter)
  --no-deflate            a firmware built without the deflate module
  --inflate-oom           deflate.DeflateIO raises MemoryError, as on a fragmented heap
  --uart-ring N           the console's input ring is N bytes (a UART REPL:
                          260 on ESP32, 256 on ESP8266), of which N - 1 hold
                          input; what arrives while it is full is lost.
                          Use with --baud, as bytes then arrive at a UART's pace
  --flash-ms MS           flash timing: opening a file for writing, closing it,
                          remove, rename, mkdir and rmdir each keep the board
                          busy (not reading its input) for MS
  --erase-ms MS           a flash sector (4 kB) is erased, the board busy
                          for MS, each time a file's writes reach a new one
  --no-raw-stdio          firmware without micropython.kbd_intr, so its
                          console cannot carry raw bytes
  --fs littlefs|fat       fat: a rename over an existing file unlinks it first
  --flash-size BYTES      the file system holds this much; a write past it
                          fails with ENOSPC and os.statvfs tells the truth
  --errno-names           name every error code ("[Errno 28] ENOSPC"); stock
                          firmware names only its default list and prints the
                          others as bare numbers ("OSError: 28")
  --crash-in-rename       (with --fs fat) a hard reset between the unlink and
                          the rename of the first rename over a file
  --webrepl PORT          also serve the console over WebREPL on 127.0.0.1:PORT
                          (0: any free port) and print its ws:// address
                          instead of the device path; one client at a time,
                          a 260-byte input buffer, a soft reset closes it
  --webrepl-host HOST     the loopback address to serve WebREPL on (default
                          127.0.0.1); tests take another one to cut it off
  --password PW           the WebREPL password (default "pelkam"); at most 9 bytes,
                          as webrepl_setup refuses a longer one
  --no-file-protocol      WebREPL without its binary file protocol: binary frames
                          are read as nothing (a board built without it)
  --cut-characters        send each byte of a non-ASCII character over WebREPL in a
                          message of its own, as a program writing them apart does
  --reject-before-handshake
                          close a second WebREPL client before its handshake, as
                          older MicroPython releases do (newer ones answer the
                          handshake, then close)
  --bridge                resets keep the port open, as behind a USB-serial
                          bridge (SIGWINCH: a hard reset that keeps the port)
  --fragment SEED         cut board output into pieces of random size (1 byte
                          up) with random gaps, replayable by SEED; over
                          WebREPL, each write cut into messages at random
  --max-gap MS            longest gap between fragments (default 25)
faults (byte positions count from 0, after --arm-on has been seen if given):
  --arm-on TEXT           start counting fault positions after the PC sent TEXT
  --drop-rx N             drop the connection for good after N bytes from the PC
  --drop-tx N             drop the connection for good after N bytes to the PC
  --flip-rx N             flip the lowest bit of byte N from the PC
  --lose-rx N             byte N from the PC never arrives (a UART overrun)
  --flip-tx N             flip the lowest bit of byte N to the PC
  --mute-after N          stop answering after N bytes to the PC
  --latency MS            delay every reply by MS
Prints the device path on stdout once the board is ready.`;

function parseArgs(argv) {
  const o = {
    flavour: "stm32",
    link: `/tmp/pelkam-vboard-${process.pid}`,
    baud: 0,
    seed: null,
    dump: null,
    hash: "md5",
    entries: 4,
    resetDelay: 300,
    heap: 262144,
    uname: {},
    armOn: null,
    dropRx: -1,
    dropTx: -1,
    flipRx: -1,
    loseRx: -1,
    flipTx: -1,
    muteAfter: -1,
    latency: 0,
    lfEnter: false,
    stockPyb: false,
    noDeflate: false,
    fragment: -1,
    maxGap: 25,
    inflateOom: false,
    uartRing: 0,
    flashMs: 0,
    eraseMs: 0,
    noRawStdio: false,
    fs: "littlefs",
    flashSize: 0,
    errnoNames: false,
    crashInRename: false,
    bridge: false,
    webrepl: -1,
    password: "pelkam",
    webreplHost: "127.0.0.1",
    noFileProtocol: false,
  };
  const num = (v, name) => {
    const n = Number(v);
    if (!Number.isInteger(n) || n < 0) fail(`${name} takes a whole number`);
    return n;
  };
  for (let i = 0; i < argv.length; i++) {
    const a = argv[i];
    const v = () => {
      if (i + 1 >= argv.length) fail(`${a} needs a value`);
      return argv[++i];
    };
    switch (a) {
      case "--flavour": o.flavour = v(); if (!["stm32", "esp32"].includes(o.flavour)) fail("--flavour is stm32 or esp32"); break;
      case "--link": o.link = path.resolve(v()); break;
      case "--baud": o.baud = num(v(), a); break;
      case "--seed": o.seed = path.resolve(v()); break;
      case "--dump": o.dump = path.resolve(v()); break;
      case "--hash": o.hash = v(); if (!["md5", "sha1", "none"].includes(o.hash)) fail("--hash is md5, sha1 or none"); break;
      case "--entries": o.entries = num(v(), a); if (o.entries !== 3 && o.entries !== 4) fail("--entries is 3 or 4"); break;
      case "--reset-delay": o.resetDelay = num(v(), a); break;
      case "--heap": o.heap = num(v(), a); break;
      case "--uname": { const [k, ...rest] = v().split("="); o.uname[k] = rest.join("="); break; }
      case "--arm-on": o.armOn = Buffer.from(v(), "latin1"); break;
      case "--drop-rx": o.dropRx = num(v(), a); break;
      case "--drop-tx": o.dropTx = num(v(), a); break;
      case "--flip-rx": o.flipRx = num(v(), a); break;
      case "--lose-rx": o.loseRx = num(v(), a); break;
      case "--flip-tx": o.flipTx = num(v(), a); break;
      case "--mute-after": o.muteAfter = num(v(), a); break;
      case "--latency": o.latency = num(v(), a); break;
      case "--lf-enter": o.lfEnter = true; break;
      case "--stock-pyb": o.stockPyb = true; break;
      case "--no-deflate": o.noDeflate = true; break;
      case "--fragment": o.fragment = num(v(), a); break;
      case "--max-gap": o.maxGap = num(v(), a); break;
      case "--inflate-oom": o.inflateOom = true; break;
      case "--uart-ring": o.uartRing = num(v(), a); break;
      case "--flash-ms": o.flashMs = num(v(), a); break;
      case "--erase-ms": o.eraseMs = num(v(), a); break;
      case "--no-raw-stdio": o.noRawStdio = true; break;
      case "--fs": o.fs = v(); if (!["littlefs", "fat"].includes(o.fs)) fail("--fs is littlefs or fat"); break;
      case "--flash-size": o.flashSize = num(v(), a); break;
      case "--errno-names": o.errnoNames = true; break;
      case "--crash-in-rename": o.crashInRename = true; break;
      case "--bridge": o.bridge = true; break;
      case "--webrepl": o.webrepl = num(v(), a); break;
      case "--webrepl-host": o.webreplHost = v(); break;
      case "--no-file-protocol": o.noFileProtocol = true; break;
      case "--password":
        o.password = v();
        if (Buffer.byteLength(o.password) > 9) fail("--password: a board keeps at most 9 bytes of its WebREPL password");
        break;
      case "--cut-characters": o.cutCharacters = true; break;
      case "--reject-before-handshake": o.rejectBeforeHandshake = true; break;
      case "-h": case "--help": process.stdout.write(USAGE + "\n"); process.exit(0);
      default: fail(`unknown option ${a}`);
    }
  }
  return o;
}

function fail(msg) {
  process.stderr.write(`virtual-board: ${msg}\n${USAGE}\n`);
  process.exit(2);
}

const opts = parseArgs(process.argv.slice(2));
const stm = opts.flavour === "stm32";
const uname = Object.assign(
  stm
    ? { sysname: "pyboard", nodename: "pyboard", machine: "PYBv1.1 with STM32F405RG" }
    : { sysname: "esp32", nodename: "esp32", machine: "Generic ESP32 module with ESP32" },
  { release: "1.27.0", version: "v1.27.0 on 2025-12-10" },
  opts.uname,
);

const log = (msg) => process.stderr.write(`virtual-board: ${msg}\n`);

// Sends bytes at a UART's pace (10 bits a byte), or at once when unpaced.
class Pacer {
  constructor(baud, sink) {
    this.rate = baud / 10 / 1000; // bytes per ms
    this.sink = sink;
    this.queue = [];
    this.timer = null;
    this.credit = 0;
    this.last = 0;
  }
  push(buf) {
    if (buf.length === 0) return;
    if (this.rate === 0) return this.sink(buf);
    this.queue.push(buf);
    if (!this.timer) {
      // An idle line has no credit saved up beyond one byte, but a debt
      // from the last burst is still paid back.
      const now = performance.now();
      this.credit = Math.min(this.credit + (now - this.last) * this.rate, 1);
      this.last = now;
      this.tick();
    }
  }
  // Timers fire about once a millisecond: each tick may send what the line
  // carries until the next one, so the average stays at the line rate while
  // the end of a message is not held back by the timer's granularity.
  tick() {
    const now = performance.now();
    this.credit = Math.min(this.credit + (now - this.last) * this.rate, kMaxBurst);
    this.last = now;
    const allowance = this.credit + this.rate * kTickMs;
    let sent = 0;
    while (this.queue.length && sent < allowance) {
      const head = this.queue[0];
      const n = Math.min(head.length, Math.ceil(allowance - sent));
      this.sink(head.subarray(0, n));
      sent += n;
      if (n === head.length) this.queue.shift();
      else this.queue[0] = head.subarray(n);
    }
    this.credit -= sent;
    this.timer = this.queue.length ? setTimeout(() => this.tick(), kTickMs) : null;
  }
  clear() {
    this.queue = [];
    if (this.timer) clearTimeout(this.timer);
    this.timer = null;
  }
}

// A small seeded generator (mulberry32): the same seed cuts the same way.
function seededRandom(seed) {
  let a = seed >>> 0;
  return () => {
    a = (a + 0x6d2b79f5) >>> 0;
    let t = a;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

// Delivers bytes in pieces of random size with random gaps, as a USB-serial
// bridge, a slow host or a loaded machine does. Order is kept.
class Fragmenter {
  constructor(seed, maxGap, sink) {
    this.random = seed >= 0 ? seededRandom(seed) : null;
    this.maxGap = maxGap;
    this.sink = sink;
    this.queue = [];
    this.timer = null;
  }
  push(buf) {
    if (buf.length === 0) return;
    if (!this.random) return this.sink(buf);
    this.queue.push(Buffer.from(buf));
    if (!this.timer) this.pump();
  }
  pump() {
    this.timer = null;
    if (!this.queue.length) return;
    // Mostly small pieces, now and then a long one; a third of them follow at once.
    const r = this.random();
    const n = 1 + Math.floor(r * r * r * 256);
    const head = this.queue[0];
    this.sink(head.subarray(0, n));
    if (n >= head.length) this.queue.shift();
    else this.queue[0] = head.subarray(n);
    if (!this.queue.length) return;
    const gap = this.random() < 0.33 ? 0 : Math.floor(this.random() * (this.maxGap + 1));
    this.timer = setTimeout(() => this.pump(), gap);
  }
  clear() {
    this.queue = [];
    if (this.timer) clearTimeout(this.timer);
    this.timer = null;
  }
}

// Counts the bytes of one direction and applies that direction's faults.
class FaultStream {
  constructor(flip, drop, mute, lose = -1) {
    this.count = 0;
    this.flip = flip;
    this.drop = drop;
    this.mute = mute;
    this.lose = lose;
  }
  apply(buf, armed) {
    if (!armed) return { data: buf, dropped: false };
    const start = this.count;
    this.count += buf.length;
    let data = buf;
    if (this.flip >= start && this.flip < this.count) {
      data = Buffer.from(buf);
      data[this.flip - start] ^= 0x01;
    }
    if (this.lose >= start && this.lose < this.count) {
      const at = this.lose - start;
      data = Buffer.concat([data.subarray(0, at), data.subarray(at + 1)]);
    }
    if (this.mute >= 0 && this.count > this.mute) data = data.subarray(0, Math.max(0, this.mute - start));
    if (this.drop >= 0 && this.count >= this.drop) return { data: data.subarray(0, this.drop - start), dropped: true };
    return { data, dropped: false };
  }
}

let board = null; // { worker, relay, ctl, ring }
// A UART REPL's input ring; WebREPL input lands in the same small buffer.
const kWebReplRing = 260;
// MicroPython's ring buffer keeps one slot free: an N-byte ring holds N - 1.
const ringLimit = Math.min(RING_SIZE, (opts.uartRing > 0 ? opts.uartRing : opts.webrepl >= 0 ? kWebReplRing : RING_SIZE + 1) - 1);
let snapshot = opts.seed ? readHostTree(opts.seed) : [];
let announced = false;
let dead = false; // the connection was dropped for good (DFU or a fault)
let armed = opts.armOn === null;
let armTail = Buffer.alloc(0);
const rxFaults = new FaultStream(opts.flipRx, opts.dropRx, -1, opts.loseRx);
const txFaults = new FaultStream(opts.flipTx, opts.dropTx, opts.muteAfter);

function pushInput(buf) {
  if (!board) return;
  const { ctl, ring } = board;
  let w = Atomics.load(ctl, CTL.write);
  const r = Atomics.load(ctl, CTL.read);
  const room = ringLimit - (w - r);
  if (buf.length > room) {
    log(`input overflow, ${buf.length - room} bytes lost`);
    buf = buf.subarray(0, room);
  }
  for (const b of buf) ring[w++ % RING_SIZE] = b;
  Atomics.store(ctl, CTL.write, w);
  Atomics.add(ctl, CTL.seq, 1);
  Atomics.notify(ctl, CTL.seq);
}

const toBoard = new Pacer(opts.baud, (buf) => pushInput(buf));
const toRelay = new Fragmenter(opts.fragment, opts.maxGap, (buf) => {
  if (board && board.relay && board.relay.stdin.writable) board.relay.stdin.write(buf);
});
const toPc = new Pacer(opts.baud, (buf) => toRelay.push(buf));

function onPcBytes(buf) {
  if (!armed) {
    const seen = Buffer.concat([armTail, buf]);
    const at = seen.indexOf(opts.armOn);
    if (at < 0) {
      armTail = seen.subarray(Math.max(0, seen.length - opts.armOn.length));
      toBoard.push(buf);
      return;
    }
    armed = true;
    const after = at + opts.armOn.length - armTail.length;
    toBoard.push(buf.subarray(0, after));
    buf = buf.subarray(after);
  }
  const { data, dropped } = rxFaults.apply(buf, armed);
  toBoard.push(data);
  if (dropped) dropForGood("dropped the connection (fault)");
}

function onBoardBytes(buf) {
  // Nobody can hear the board before its port exists: such bytes are lost
  // and do not count towards faults.
  if (!board || !board.relay) return;
  const send = () => {
    const { data, dropped } = txFaults.apply(Buffer.from(buf), armed);
    toPc.push(data);
    toWebRepl(data);
    if (dropped) setTimeout(() => dropForGood("dropped the connection (fault)"), 20);
  };
  if (opts.latency > 0) setTimeout(send, opts.latency);
  else send();
}

function startRelay() {
  return new Promise((resolve, reject) => {
    const relay = spawn("python3", [path.join(here, "ptyrelay.py"), opts.link], { stdio: ["pipe", "pipe", "pipe"] });
    let err = "";
    relay.stderr.on("data", (d) => {
      err += d.toString();
      if (err.includes("READY")) resolve(relay);
    });
    relay.on("exit", (code) => reject(new Error(`pty relay ended (${code}): ${err.trim()}`)));
    relay.stdin.on("error", () => {});
  });
}

async function startBoard(keptRelay = null) {
  const ctlBuffer = new SharedArrayBuffer(CTL.size * 4);
  const ringBuffer = new SharedArrayBuffer(RING_SIZE);
  const ctl = new Int32Array(ctlBuffer);
  const ring = new Uint8Array(ringBuffer);
  const worker = new Worker(path.join(here, "worker.mjs"), {
    workerData: {
      config: {
        flavour: opts.flavour, entries: opts.entries, hash: opts.hash, heap: opts.heap, uname, dump: opts.dump,
        lfEnter: opts.lfEnter, stockPyb: opts.stockPyb, noDeflate: opts.noDeflate,
        inflateOom: opts.inflateOom, flashMs: opts.flashMs, eraseMs: opts.eraseMs, noRawStdio: opts.noRawStdio, fs: opts.fs, flashSize: opts.flashSize, errnoNames: opts.errnoNames,
        crashInRename: opts.crashInRename, banner: keptRelay !== null,
      },
      snapshot,
      ctlBuffer,
      ringBuffer,
    },
  });
  const ready = new Promise((resolve, reject) => {
    worker.on("message", (m) => {
      if (m.type === "ready") resolve();
      else if (m.type === "out") onBoardBytes(m.data);
      else if (m.type === "reset" || m.type === "dfu") onLeave(m);
      else if (m.type === "softreset") dropWebReplClient();
      else if (m.type === "file") fileAnswered(m);
    });
    worker.on("error", (e) => {
      log(`board crashed: ${e.stack || e}`);
      reject(e);
    });
  });
  board = { worker, relay: keptRelay, ctl, ring };
  if (keptRelay) {
    ready.then(() => webreplUp()).catch(() => {});
    return ready;
  }
  // Like USB enumeration, the port appears once the board has booted, or
  // after a second when boot.py or main.py keeps running.
  await Promise.race([ready, new Promise((r) => setTimeout(r, kPortAppearsMs))]);
  if (!board || board.worker !== worker) return;
  const relay = await startRelay();
  board.relay = relay;
  relay.stdout.on("data", onPcBytes);
  // boot.py starts WebREPL, so it answers even while main.py runs.
  await webreplUp();
  if (!announced) {
    announced = true;
    process.stdout.write((opts.webrepl >= 0 ? `ws://${opts.webreplHost}:${webreplPort}` : opts.link) + "\n");
  }
  await ready;
}

async function stopBoard() {
  if (!board) return;
  const { worker, relay } = board;
  board = null;
  toBoard.clear();
  toPc.clear();
  toRelay.clear();
  if (relay) {
    const gone = new Promise((r) => relay.once("exit", r));
    relay.kill("SIGTERM");
    await gone;
  }
  await worker.terminate();
}

function onLeave(m) {
  snapshot = m.snapshot;
  webreplDown();
  if (m.type === "dfu") {
    log("DFU mode: the port is gone for good");
    dead = true;
    stopBoard();
    return;
  }
  if (m.keepPort || opts.bridge) {
    // Behind a USB-serial bridge the port stays; the board boots again behind it.
    log("hard reset, the port stays open");
    if (m.crashed) opts.crashInRename = false;
    const { worker, relay } = board;
    board = null;
    toBoard.clear();
    worker.terminate().then(() => { if (!dead) startBoard(relay).catch(fatal); });
    return;
  }
  log("reset");
  stopBoard().then(() => setTimeout(() => { if (!dead) startBoard().catch(fatal); }, opts.resetDelay));
}

function dropForGood(why) {
  if (dead || !board) return;
  dead = true;
  log(why);
  webreplDown();
  const relay = board.relay;
  board.relay = null;
  if (relay) relay.kill("SIGTERM");
}

// Asks the running board for its files; falls back to the last snapshot when
// no board runs (after DFU, between resets) or it is stuck in user code.
function dump() {
  if (!opts.dump) return Promise.resolve(false);
  if (!board || !board.worker) {
    writeTreeToHost(opts.dump, snapshot);
    return Promise.resolve(true);
  }
  const { ctl } = board;
  const before = Atomics.load(ctl, CTL.dumpDone);
  Atomics.store(ctl, CTL.cmdDump, 1);
  Atomics.add(ctl, CTL.seq, 1);
  Atomics.notify(ctl, CTL.seq);
  return new Promise((resolve) => {
    const started = Date.now();
    const poll = () => {
      if (Atomics.load(ctl, CTL.dumpDone) !== before) resolve(true);
      else if (Date.now() - started > kDumpWaitMs) resolve(false);
      else setTimeout(poll, 5);
    };
    poll();
  });
}

// ---- WebREPL, as MicroPython's webrepl module serves it ----
let webreplServer = null;
let webreplPort = 0;
let webreplClient = null; // { ws, loggedIn, typed }

// Each board write is a text message of its own, as MicroPython sends it:
// a character's bytes may land in two messages. --cut-characters makes that
// certain: each byte of a non-ASCII character goes in a message of its own.
// With --fragment, writes are also cut at random points (a board's stdout
// writes come in whatever pieces its program and buffers make).
const webreplCuts = opts.fragment >= 0 ? seededRandom(opts.fragment + 1) : null;

function sendWebRepl(data) {
  const { ws } = webreplClient;
  if (!webreplCuts) return ws.send(data, { binary: false });
  for (let at = 0; at < data.length; ) {
    const r = webreplCuts();
    const n = 1 + Math.floor(r * r * r * 256);
    ws.send(data.subarray(at, at + n), { binary: false });
    at += n;
  }
}

function toWebRepl(data) {
  if (!webreplClient || !webreplClient.loggedIn || webreplClient.deactivated || data.length === 0) return;
  if (!opts.cutCharacters) {
    sendWebRepl(data);
    return;
  }
  let from = 0;
  for (let i = 0; i <= data.length; i++) {
    if (i < data.length && data[i] < 0x80) continue;
    if (i > from) sendWebRepl(data.subarray(from, i));
    if (i < data.length) sendWebRepl(data.subarray(i, i + 1));
    from = i + 1;
  }
}

function dropWebReplClient() {
  if (!webreplClient) return;
  const { ws } = webreplClient;
  webreplClient = null;
  ws.terminate();
}

function attachWebRepl(ws) {
  const client = { ws, loggedIn: false, typed: "", deactivated: false, file: newFileState() };
  webreplClient = client;
  ws.on("message", (data, isBinary) => {
    if (webreplClient !== client || client.deactivated) return;
    const buf = Buffer.isBuffer(data) ? data : Buffer.from(data);
    if (!client.loggedIn) {
      client.typed += buf.toString("latin1");
      const end = client.typed.search(/[\r\n]/);
      if (end < 0) return;
      // As the board's C module does: the password it keeps is 9 characters
      // at most, and it keeps up to 10 of what is typed, so a longer answer
      // never matches.
      if (client.typed.slice(0, Math.min(end, 10)) === opts.password.slice(0, 9)) {
        client.loggedIn = true;
        ws.send("\r\nWebREPL connected\r\n>>> ");
        log("WebREPL client logged in");
      } else {
        ws.send("\r\nAccess denied\r\n", () => { if (webreplClient === client) dropWebReplClient(); });
        log("WebREPL password refused");
      }
      return;
    }
    if (isBinary) onFileBytes(client, buf);
    else onPcBytes(buf);
  });
  ws.on("close", () => { if (webreplClient === client) webreplClient = null; });
  ws.on("error", () => {});
  ws.send("Password: ");
}

function webreplUp() {
  if (opts.webrepl < 0 || webreplServer || dead) return Promise.resolve();
  const server = http.createServer((req, res) => { res.writeHead(426); res.end(); });
  const wss = new WebSocketServer({ noServer: true });
  server.on("upgrade", (req, socket, head) => {
    if (webreplClient) {
      const who = `('${socket.remoteAddress}', ${socket.remotePort})`;
      onBoardBytes(Buffer.from(`\r\nConcurrent WebREPL connection from ${who} rejected\r\n`));
      if (opts.rejectBeforeHandshake) socket.destroy();
      else wss.handleUpgrade(req, socket, head, (ws) => ws.terminate());
      return;
    }
    wss.handleUpgrade(req, socket, head, attachWebRepl);
  });
  webreplServer = server;
  return new Promise((resolve) => {
    server.listen(webreplPort || opts.webrepl, opts.webreplHost, () => {
      webreplPort = server.address().port;
      resolve();
    });
  });
}

// ---- WebREPL's binary file protocol: an 82-byte "WA" request, "WB" answers ----
const kFileHeader = 82;
const kFilePut = 1;
const kFileGet = 2;
const kFileVersion = 3;
const kGetPiece = 256;
const kVersion = [1, 27, 0];
const fileRequests = new Map();
let nextFileRequest = 1;

function newFileState() {
  return { state: "header", header: Buffer.alloc(0), pending: Buffer.alloc(0) };
}

function fileAnswer(client, code) {
  const b = Buffer.from("WB\0\0", "latin1");
  b.writeUInt16LE(code, 2);
  client.ws.send(b, { binary: true });
}

// The board does the work between two REPL commands; a board that resets
// meanwhile never answers, as the socket is gone with it.
function askBoard(op, name, data) {
  if (!board) return new Promise(() => {});
  const id = nextFileRequest++;
  board.worker.postMessage({ id, op, name, data });
  Atomics.store(board.ctl, CTL.cmdFile, 1);
  Atomics.add(board.ctl, CTL.seq, 1);
  Atomics.notify(board.ctl, CTL.seq);
  return new Promise((resolve) => fileRequests.set(id, resolve));
}

function fileAnswered(m) {
  const resolve = fileRequests.get(m.id);
  fileRequests.delete(m.id);
  if (resolve) resolve(m);
}

function fileOpDone(client, state) {
  if (webreplClient !== client) return;
  const f = client.file;
  f.state = state;
  const rest = f.pending;
  f.pending = Buffer.alloc(0);
  if (rest.length) onFileBytes(client, rest);
}

function onFileBytes(client, buf) {
  // A board built without the file protocol reads binary frames as nothing.
  if (opts.noFileProtocol) return;
  const f = client.file;
  let off = 0;
  while (off < buf.length) {
    if (f.state === "busy") {
      // The board reads nothing more until it has done the request.
      f.pending = Buffer.concat([f.pending, buf.subarray(off)]);
      return;
    }
    if (f.state === "put") {
      const n = Math.min(f.left, buf.length - off);
      f.data.push(Buffer.from(buf.subarray(off, off + n)));
      f.left -= n;
      off += n;
      if (f.left === 0) finishPut(client);
    } else if (f.state === "get") {
      // Each byte the client sends asks for the next piece.
      off++;
      const piece = f.content.subarray(f.sent, f.sent + kGetPiece);
      f.sent += piece.length;
      const frame = Buffer.alloc(2 + piece.length);
      frame.writeUInt16LE(piece.length, 0);
      piece.copy(frame, 2);
      client.ws.send(frame, { binary: true });
      if (piece.length === 0) {
        fileAnswer(client, 0);
        f.state = "header";
      }
    } else {
      const n = Math.min(kFileHeader - f.header.length, buf.length - off);
      f.header = Buffer.concat([f.header, buf.subarray(off, off + n)]);
      off += n;
      if (f.header.length === kFileHeader) startFileOp(client);
    }
  }
}

function startFileOp(client) {
  const f = client.file;
  const h = f.header;
  f.header = Buffer.alloc(0);
  if (h.toString("latin1", 0, 2) !== "WA") return; // not a request: ignored
  const type = h[2];
  const size = h.readUInt32LE(12);
  const name = h.subarray(18, 18 + Math.min(h.readUInt16LE(16), 64)).toString("utf8");
  if (type === kFileVersion) {
    client.ws.send(Buffer.from(kVersion), { binary: true });
  } else if (type === kFilePut) {
    // As the C module: the file is opened (truncated) first; an open that
    // raises ends WebREPL as a failing read does. Then status 0, the data,
    // and status 0 again whether the writes worked or not.
    log(`WebREPL put ${name} (${size} bytes)`);
    f.state = "busy";
    askBoard("open", name).then((m) => {
      if (m.error) {
        client.deactivated = true;
        onBoardBytes(Buffer.from(`dupterm: Exception in read() method, deactivating: ${m.error}\r\n`));
        return;
      }
      fileAnswer(client, 0);
      f.name = name;
      f.left = size;
      f.data = [];
      if (size === 0) finishPut(client);
      else fileOpDone(client, "put");
    });
  } else if (type === kFileGet) {
    f.state = "busy";
    askBoard("get", name).then((m) => {
      if (m.error) {
        // The board's dupterm gives up on a stream whose read raised.
        client.deactivated = true;
        onBoardBytes(Buffer.from(`dupterm: Exception in read() method, deactivating: ${m.error}\r\n`));
        return;
      }
      f.content = Buffer.from(m.hex, "hex");
      f.sent = 0;
      fileAnswer(client, 0);
      fileOpDone(client, "get");
    });
  }
}

function finishPut(client) {
  const f = client.file;
  f.state = "busy";
  askBoard("put", f.name, Buffer.concat(f.data)).then(() => {
    f.data = [];
    fileAnswer(client, 0);
    fileOpDone(client, "header");
  });
}

// A board that resets has no server until it has booted again.
function webreplDown() {
  dropWebReplClient();
  if (!webreplServer) return;
  webreplServer.close();
  webreplServer.closeAllConnections?.();
  webreplServer = null;
}

function fatal(e) {
  log(String(e && e.message ? e.message : e));
  process.exit(1);
}

let exiting = false;
async function shutdown() {
  if (exiting) return;
  exiting = true;
  // Whatever hangs (a board stuck in user code), the process still ends.
  setTimeout(() => process.exit(0), kShutdownLimitMs);
  await dump();
  dead = true;
  await stopBoard();
  process.exit(0);
}

// A board whose owner died (a test killed by its watchdog) goes away too.
const parent = process.ppid;
setInterval(() => {
  if (process.ppid !== parent) shutdown();
}, 1000).unref();

// One line per request, so a caller can wait for exactly its own dump.
process.on("SIGUSR1", () => dump().then((done) => log(done ? "dumped" : "board busy, dump not written")));
// A cable pulled and plugged back in: the board leaves as on a reset.
process.on("SIGUSR2", () => {
  if (!board || !board.ctl) return;
  Atomics.store(board.ctl, CTL.cmdUnplug, 1);
  Atomics.add(board.ctl, CTL.seq, 1);
  Atomics.notify(board.ctl, CTL.seq);
});
// A hard reset that the port survives: the EN button, a watchdog, a brown-out.
process.on("SIGWINCH", () => {
  if (!board || !board.ctl) return;
  Atomics.store(board.ctl, CTL.cmdHardReset, 1);
  Atomics.add(board.ctl, CTL.seq, 1);
  Atomics.notify(board.ctl, CTL.seq);
});
process.on("SIGTERM", shutdown);
process.on("SIGINT", shutdown);
process.on("SIGHUP", shutdown);
startBoard().catch(fatal);
