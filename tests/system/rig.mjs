// The whole product as a person runs it, for the system tests and the soak: a temporary
// home (container root, media library, configuration), vexo-phone and vexo-watch started,
// killed and restarted at will, WebSocket faces that mirror the watch, and what /proc says
// about a process. Every wait has a bound and fails with what it waited for; nothing here
// judges a timing.
import { spawn, spawnSync } from 'node:child_process';
import { copyFileSync, existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, statSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Skip } from '../web/browser/harness.mjs';
import { WatchState } from '../../web/store.js';

// A group other than the default, so that every run also shows the programs carry any group.
export const kGroup = 'group.test.vexo-system';

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// Polls `test` until it gives a truthy value; fails after `limit` ms saying `what`.
export async function waitUntil(what, test, limit = 20000, every = 25) {
  const end = Date.now() + limit;
  for (;;) {
    const value = await test();
    if (value) return value;
    if (Date.now() > end) throw new Error(`timed out after ${limit} ms waiting for ${what}`);
    await sleep(every);
  }
}

// One of our programs as a child process, its output kept for failure reports.
export class Program {
  constructor(name, path, args, env) {
    this.name = name;
    this.path = path;
    this.args = args;
    this.env = env;
    this.process = null;
    this.output = '';
  }

  get running() {
    return this.process !== null && this.exitStatus === null;
  }

  get pid() {
    return this.process?.pid;
  }

  start() {
    this.output = '';
    this.exitStatus = null;
    const child = spawn(this.path, this.args, { env: this.env, stdio: ['ignore', 'pipe', 'pipe'] });
    this.process = child;
    this.exited = new Promise((resolve) => child.on('exit', (code, signal) => {
      this.exitStatus = { code, signal };
      resolve(this.exitStatus);
    }));
    for (const stream of [child.stdout, child.stderr]) {
      stream.setEncoding('utf8');
      stream.on('data', (text) => {
        this.output += text;
        if (this.output.length > 400_000) this.output = this.output.slice(-200_000);
      });
    }
    return this;
  }

  // The first match of `pattern` in the output since start.
  waitFor(pattern, limit = 60000) {
    return waitUntil(`${this.name} to print ${pattern}`, () => {
      if (this.exitStatus) throw new Error(`${this.name} ended (${JSON.stringify(this.exitStatus)}):\n${this.output}`);
      return pattern.exec(this.output);
    }, limit);
  }

  async kill(signal = 'SIGKILL') {
    if (!this.running) return this.exitStatus;
    this.process.kill(signal);
    const timer = setTimeout(() => this.process.kill('SIGKILL'), 10000);
    const status = await this.exited;
    clearTimeout(timer);
    return status;
  }

  stop() {
    return this.kill('SIGTERM');
  }
}

let shared = null;

// One demonstration library for the whole run, removed when the run ends.
function sharedLibrary(program) {
  if (shared) return shared;
  const root = mkdtempSync(join(tmpdir(), 'vexo-system-music-'));
  process.on('exit', () => rmSync(root, { recursive: true, force: true }));
  const music = join(root, 'music');
  const index = join(root, 'media-library.sqlite');
  const env = { ...process.env, VEXO_MEDIA_LIBRARY: index, XDG_DATA_HOME: join(root, 'data'), VEXO_CONTAINER_ROOT: join(root, 'containers') };
  const demo = spawnSync(program, ['demo', music], { env, encoding: 'utf8', timeout: 180000 });
  if (demo.status !== 0) throw new Error(`vexo-library demo failed (${demo.status}): ${demo.stderr}${demo.stdout}`);
  shared = { music, index };
  return shared;
}

function requireProgram(path, name) {
  if (!path || !existsSync(path)) throw new Skip(`${name} is not built (${path ?? 'no path given'})`);
}

// A temporary home with a demonstration library, and the phone and the watch in it (not yet
// started). `options` holds the paths: watch, phone, library, web-root.
export class System {
  constructor(options, { group = options.group ?? kGroup, containerRoot } = {}) {
    requireProgram(options.watch, 'vexo-watch');
    requireProgram(options.phone, 'vexo-phone');
    requireProgram(options.library, 'vexo-library');
    this.options = options;
    this.group = group;
    this.root = mkdtempSync(join(tmpdir(), 'vexo-system-'));
    this.music = join(this.root, 'music');
    this.containerRoot = containerRoot ?? join(this.root, 'containers');
    this.env = {
      ...process.env,
      VEXO_CONTAINER_ROOT: this.containerRoot,
      VEXO_MEDIA_LIBRARY: join(this.root, 'media-library.sqlite'),
      XDG_CONFIG_HOME: join(this.root, 'config'),
      XDG_DATA_HOME: join(this.root, 'data'),
      XDG_STATE_HOME: join(this.root, 'state'),
      XDG_RUNTIME_DIR: join(this.root, 'runtime'),
      VEXO_LOG: process.env.VEXO_LOG ?? 'warning',
    };
    delete this.env.VEXO_PHONE_LAUNCH_COMMAND;
    for (const dir of [this.music, this.env.XDG_CONFIG_HOME, this.env.XDG_DATA_HOME, this.env.XDG_STATE_HOME,
      this.env.XDG_RUNTIME_DIR]) mkdirSync(dir, { recursive: true, mode: 0o700 });
    this.phone = new Program('vexo-phone', options.phone, ['--audio-device', 'none', '--group', group], this.env);
    this.wormholePath = options.wormhole;
    this.watch = null;
    this.port = 0;
  }

  get container() {
    return join(this.containerRoot, this.group);
  }

  get messages() {
    return join(this.container, 'messages');
  }

  get url() {
    return `http://127.0.0.1:${this.port}/`;
  }

  // The demonstration library: its songs made once per run and shared, the index copied
  // into this home so that a test may spoil it.
  makeLibrary() {
    const shared = sharedLibrary(this.options.library);
    this.music = shared.music;
    copyFileSync(shared.index, this.env.VEXO_MEDIA_LIBRARY);
  }

  async startPhone() {
    this.phone.start();
    await this.phone.waitFor(/listening in /);
  }

  // The first start picks a free port; later ones take the same, as a page expects.
  async startWatch() {
    const args = ['--port', String(this.port), '--group', this.group, '--web-root', this.options['web-root']];
    this.watch = new Program('vexo-watch', this.options.watch, args, this.env).start();
    const match = await this.watch.waitFor(/Watch face: http:\/\/127\.0\.0\.1:(\d+)\//);
    this.port = Number(match[1]);
  }

  async start() {
    this.makeLibrary();
    await this.startPhone();
    await this.startWatch();
  }

  async stop() {
    await Promise.all([this.phone.stop(), this.watch?.stop()]);
    if (!process.env.VEXO_KEEP_TEMP) rmSync(this.root, { recursive: true, force: true });
  }

  // Temporary files left anywhere in the home (the writers' ".<name>.<pid>.<n>.tmp" and
  // anything else that says it is temporary).
  temporaryFiles() {
    const found = [];
    const visit = (dir) => {
      let entries = [];
      try {
        entries = readdirSync(dir, { withFileTypes: true });
      } catch {
        return;
      }
      for (const entry of entries) {
        const path = join(dir, entry.name);
        if (entry.isDirectory()) visit(path);
        else if (/\.tmp$|~$|\.partial$|-journal$/.test(entry.name)) found.push(path);
      }
    };
    visit(this.root);
    return found.filter((path) => !path.startsWith(this.music));
  }

  // HTTP to the watch, one connection per request so that no pool holds descriptors open.
  request(method, path, body) {
    return httpRequest(this.port, method, path, body);
  }

  async snapshot() {
    const reply = await this.request('GET', '/api/snapshot');
    if (reply.status !== 200) throw new Error(`GET /api/snapshot gave ${reply.status}: ${reply.body}`);
    return JSON.parse(reply.body);
  }

  event(event) {
    return this.request('POST', '/api/events', JSON.stringify(event)).then((reply) => ({
      status: reply.status, body: reply.body ? JSON.parse(reply.body) : null,
    }));
  }

  // The wormhole tool on this home's group: {status, output}.
  wormhole(...args) {
    requireProgram(this.wormholePath, 'wormhole');
    const result = spawnSync(this.wormholePath, ['--group', this.group, ...args], { env: this.env, encoding: 'utf8', timeout: 20000 });
    return { status: result.status, output: `${result.stdout}${result.stderr}` };
  }

  // The phone's notification, sent as the phone sends it.
  notify(...args) {
    const sent = spawnSync(this.options.phone, ['--group', this.group, 'notify', ...args],
      { env: this.env, encoding: 'utf8', timeout: 20000 });
    return sent.status === 0;
  }
}

export function httpRequest(port, method, path, body, limit = 30000) {
  return new Promise((resolve) => {
    const request = http.request({
      host: '127.0.0.1', port, method, path, agent: false, timeout: limit,
      headers: body === undefined ? {} : { 'content-type': 'application/json', 'content-length': Buffer.byteLength(body) },
    }, (response) => {
      let text = '';
      response.setEncoding('utf8');
      response.on('data', (chunk) => { text += chunk; });
      response.on('end', () => resolve({ status: response.statusCode, body: text }));
      response.on('error', () => resolve({ status: 0, body: text }));
    });
    request.on('timeout', () => request.destroy(new Error('timeout')));
    request.on('error', (error) => resolve({ status: 0, body: String(error) }));
    request.end(body);
  });
}

// What /proc tells of a process: resident memory (KB), threads and open descriptors.
export function processFigures(pid) {
  try {
    const status = readFileSync(`/proc/${pid}/status`, 'utf8');
    const field = (name) => Number(new RegExp(`^${name}:\\s+(\\d+)`, 'm').exec(status)?.[1] ?? NaN);
    return { rssKb: field('VmRSS'), threads: field('Threads'), fds: readdirSync(`/proc/${pid}/fd`).length };
  } catch {
    return null;
  }
}

// CPU time (user + system) of a process so far, in seconds.
export function cpuSeconds(pid) {
  const stat = readFileSync(`/proc/${pid}/stat`, 'utf8');
  const fields = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
  return (Number(fields[11]) + Number(fields[12])) / 100;
}

// A canonical text of a mirrored watch: two mirrors that show the same thing give the same
// text, whichever way (snapshot or change batches) they came to it. A screen's content
// height is left out: it is a hint sent with the screen, not kept current.
export function stateDigest(state) {
  const sortKeys = (value) => {
    if (Array.isArray(value)) return value.map(sortKeys);
    if (value && typeof value === 'object') {
      const out = {};
      for (const key of Object.keys(value).sort()) if (key !== 'contentHeight') out[key] = sortKeys(value[key]);
      return out;
    }
    return value;
  };
  const byId = (map) => [...map.keys()].sort().map((id) => sortKeys(map.get(id)));
  const text = JSON.stringify({ navigation: sortKeys(state.navigation), screens: byId(state.screens), objects: byId(state.objects) });
  let h1 = 0xdeadbeef;
  let h2 = 0x41c6ce57;
  for (let i = 0; i < text.length; i++) {
    const c = text.charCodeAt(i);
    h1 = Math.imul(h1 ^ c, 2654435761);
    h2 = Math.imul(h2 ^ c, 1597334677);
  }
  h1 = Math.imul(h1 ^ (h1 >>> 16), 2246822507) ^ Math.imul(h2 ^ (h2 >>> 13), 3266489909);
  h2 = Math.imul(h2 ^ (h2 >>> 16), 2246822507) ^ Math.imul(h1 ^ (h1 >>> 13), 3266489909);
  return `${(h2 >>> 0).toString(16)}${(h1 >>> 0).toString(16)}-${text.length}`;
}

// What differs between a mirror and a snapshot, for a failure message: the screens and
// objects that are only in one of them or not alike, a few of each.
export function stateDifferences(state, snapshot) {
  const fresh = new WatchState();
  fresh.applySnapshot(snapshot);
  const text = (value) => JSON.stringify(value ?? null, (key, v) => (key === 'contentHeight' ? undefined : v));
  const out = [];
  if (JSON.stringify(state.navigation) !== JSON.stringify(fresh.navigation)) out.push(`navigation ${JSON.stringify(state.navigation)} against ${JSON.stringify(fresh.navigation)}`);
  for (const kind of ['screens', 'objects']) {
    const ids = new Set([...state[kind].keys(), ...fresh[kind].keys()]);
    for (const id of ids) {
      const mine = text(state[kind].get(id));
      const theirs = text(fresh[kind].get(id));
      if (mine !== theirs && out.length < 6) out.push(`${kind} ${id}: ${mine.slice(0, 300)} against ${theirs.slice(0, 300)}`);
    }
  }
  return out.join('; ');
}

// The digest of a snapshot as a fresh mirror sees it.
export function snapshotDigest(snapshot) {
  const state = new WatchState();
  state.applySnapshot(snapshot);
  return stateDigest(state);
}

// A WebSocket face of the watch: mirrors it with the page's own store, sends events with
// an id and matches their results, and keeps the digest of each revision while asked to.
export class FaceClient {
  constructor(name) {
    this.name = name;
    this.state = new WatchState();
    this.pending = new Map();
    this.nextId = 1;
    this.sent = 0;
    this.answered = 0;
    this.statuses = {};
    this.failures = [];
    this.notifications = new Map();
    // The newest protocol-log record per "<direction>:<identifier>".
    this.lastRecord = new Map();
    this.digests = null;
    this.closed = true;
    this.messages = 0;
  }

  connect(port) {
    if (typeof WebSocket !== 'function') throw new Skip('this node has no WebSocket (node 22, or node 20 with --experimental-websocket)');
    this.state.clear();
    return new Promise((resolve, reject) => {
      const socket = new WebSocket(`ws://127.0.0.1:${port}/api/stream`);
      this.socket = socket;
      const timer = setTimeout(() => reject(new Error(`${this.name}: no snapshot within 30 s`)), 30000);
      socket.addEventListener('message', (event) => {
        this.#receive(event.data);
        if (this.state.loaded) {
          clearTimeout(timer);
          this.closed = false;
          resolve();
        }
      });
      socket.addEventListener('close', () => {
        this.closed = true;
        clearTimeout(timer);
        reject(new Error(`${this.name}: the stream closed before its snapshot`));
        for (const [, entry] of this.pending) entry.resolve({ status: 0, closed: true });
        this.pending.clear();
      });
      socket.addEventListener('error', () => {});
    });
  }

  close() {
    this.socket?.close();
  }

  // Sends `event`; resolves with its result message (status 0 when the stream closed first).
  send(event) {
    const id = this.nextId++;
    this.sent += 1;
    return new Promise((resolve) => {
      this.pending.set(id, { resolve, event, at: Date.now() });
      this.socket.send(JSON.stringify({ ...event, id }));
    });
  }

  // Events that had no result after `ms`.
  overdue(ms) {
    const now = Date.now();
    return [...this.pending.values()].filter((entry) => now - entry.at > ms).map((entry) => entry.event);
  }

  recordDigests() {
    this.digests = new Map([[this.state.revision, stateDigest(this.state)]]);
  }

  stopDigests() {
    this.digests = null;
  }

  #receive(text) {
    this.messages += 1;
    let message;
    try {
      message = JSON.parse(text);
    } catch {
      this.failures.push(`${this.name}: a stream message is not JSON`);
      return;
    }
    switch (message.type) {
      case 'snapshot':
        if (!this.state.applySnapshot(message.snapshot)) this.failures.push(`${this.name}: an unreadable snapshot`);
        break;
      case 'changes': {
        const applied = this.state.applyBatch(message);
        if (applied.gap) this.failures.push(`${this.name}: batch ${message.revision} after ${this.state.revision}: a gap`);
        else if (this.digests && !applied.stale) this.digests.set(this.state.revision, stateDigest(this.state));
        break;
      }
      case 'result': {
        const entry = this.pending.get(message.id);
        if (!entry) {
          this.failures.push(`${this.name}: a result for no event: ${text}`);
          break;
        }
        this.pending.delete(message.id);
        this.answered += 1;
        this.statuses[message.status] = (this.statuses[message.status] ?? 0) + 1;
        if (message.status === 400) this.failures.push(`${this.name}: ${JSON.stringify(entry.event)} malformed: ${message.error}`);
        entry.resolve(message);
        break;
      }
      case 'log':
        for (const record of message.records ?? []) this.lastRecord.set(`${record.direction}:${record.identifier}`, record);
        break;
      case 'notification':
        this.notifications.set(message.notification.id, message.notification);
        break;
      case 'notifications':
        for (const notification of message.notifications) this.notifications.set(notification.id, notification);
        break;
      case 'notificationClosed':
        this.notifications.delete(message.id);
        break;
      default:
        break;
    }
  }
}

// Checks a snapshot's shape: the pages, a visible screen that exists, every object named
// once with a kind and a frame. Returns the problems found.
export function snapshotProblems(snapshot) {
  const problems = [];
  if (snapshot.started !== true) problems.push('not started');
  if (!Array.isArray(snapshot.pages) || snapshot.pages.length !== 3) problems.push('not three pages');
  const screens = [...(snapshot.pages ?? []), ...(snapshot.modals ?? []), ...(snapshot.glance?.screen ? [snapshot.glance.screen] : [])];
  if (snapshot.visibleScreen !== null && !screens.some((screen) => screen.id === snapshot.visibleScreen)) {
    problems.push(`the visible screen ${snapshot.visibleScreen} is not there`);
  }
  const seen = new Set();
  // Only what is shown is laid out: a hidden group's objects have no frame.
  const visit = (object, shown) => {
    if (!object || typeof object !== 'object') return;
    if (typeof object.id !== 'string' || typeof object.kind !== 'string') problems.push(`an object without id or kind: ${JSON.stringify(object).slice(0, 120)}`);
    if (seen.has(object.id)) problems.push(`object ${object.id} twice`);
    seen.add(object.id);
    const visible = shown && !object.hidden;
    if (visible && object.kind !== 'menu' && !object.frame) problems.push(`object ${object.id} (${object.kind}) is shown without a frame`);
    for (const child of object.children ?? []) visit(child, visible);
    for (const row of object.rows ?? []) visit(row.group, visible);
  };
  for (const screen of screens) {
    for (const object of screen.objects ?? []) visit(object, true);
    if (screen.menu) visit(screen.menu, true);
  }
  return problems;
}

export function fileSize(path) {
  try {
    return statSync(path).size;
  } catch {
    return -1;
  }
}

// A stream page that completes its handshake and then never reads. Resolves once connected;
// `closedAt` is set when the server drops it.
export function neverReadingPage(port) {
  return new Promise((resolve, reject) => {
    const page = { closedAt: null, socket: null };
    const socket = net.connect({ host: '127.0.0.1', port }, () => {
      socket.write(`GET /api/stream HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\nUpgrade: websocket\r\n` +
        'Connection: Upgrade\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n');
    });
    page.socket = socket;
    socket.once('data', (head) => {
      socket.pause();
      if (!/^HTTP\/1\.1 101/.test(head.toString('latin1'))) reject(new Error('the stream refused the page'));
      else resolve(page);
    });
    socket.on('close', () => { page.closedAt = Date.now(); });
    socket.on('error', () => {});
  });
}
