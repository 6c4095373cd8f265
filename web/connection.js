// The page's link to vexo-watch: the WebSocket stream (snapshot, change batches, protocol-log
// records, notifications, event results) with reconnection, and events sent over it.

const kMinimumDelay = 250;
const kMaximumDelay = 4000;
const kEventTimeout = 10000;

// What a message of the stream is. Results answer an event we sent (they carry our "id");
// a snapshot has "pages"; a batch has "changes"; the rest say their type.
export function classify(message) {
  if (!message || typeof message !== 'object' || Array.isArray(message)) return 'unknown';
  if (typeof message.type === 'string') {
    switch (message.type) {
      case 'snapshot': return 'snapshot';
      case 'changes': case 'batch': return 'batch';
      case 'result': case 'eventResult': return 'result';
      case 'log': case 'protocolLog': case 'protocol': return 'log';
      case 'notification': case 'localNotification': return 'notification';
      case 'pong': case 'echo': return 'echo';
      default: break;
    }
  }
  if (Array.isArray(message.pages) && message.screen) return 'snapshot';
  if (Array.isArray(message.changes)) return 'batch';
  if ('id' in message && ('ok' in message || 'result' in message)) return 'result';
  if (message.protocolLog || message.log) return 'log';
  if ('sequence' in message && 'direction' in message && 'identifier' in message) return 'log';
  if (message.notification) return 'notification';
  if ('alertTitle' in message || 'alertBody' in message) return 'notification';
  return 'unknown';
}

// The body of a log or notification message, whether it comes wrapped or not.
export function unwrap(message, kind) {
  if (kind === 'log') return message.protocolLog ?? message.log ?? message.record ?? message;
  if (kind === 'notification') return message.notification ?? message.record ?? message;
  return message;
}

// {ok, error?} from a result message, wrapped ({"result": {...}}) or flat.
export function resultOf(message) {
  const inner = message.result && typeof message.result === 'object' ? message.result : message;
  return { ok: inner.ok === true, error: inner.error ?? (inner.ok === true ? undefined : 'refused') };
}

export class Connection {
  // handlers: onSnapshot(s), onBatch(b), onLog(record), onNotification(n), onStatus(state,
  // detail) with state 'connecting' | 'open' | 'closed'.
  constructor(handlers, { location = window.location } = {}) {
    this.handlers = handlers;
    const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
    this.url = `${scheme}//${location.host}/api/stream`;
    this.socket = null;
    this.delay = kMinimumDelay;
    this.nextId = 1;
    this.pending = new Map(); // id -> {resolve, timer}
    this.echoes = new Map();
    this.retryTimer = null;
    this.state = 'connecting';
  }

  start() {
    this.#open();
    // A tab woken from the background reconnects at once instead of waiting out its delay.
    document.addEventListener('visibilitychange', () => {
      if (document.visibilityState === 'visible' && this.state === 'closed') this.#retryNow();
    });
    window.addEventListener('online', () => this.#retryNow());
  }

  get isOpen() {
    return this.socket?.readyState === WebSocket.OPEN;
  }

  // Sends one event and resolves with {ok, error?}; never rejects. Without a stream it
  // falls back to POST /api/events.
  send(event) {
    if (!this.isOpen) return this.#post(event);
    const id = `e${this.nextId++}`;
    return new Promise((resolve) => {
      const timer = setTimeout(() => {
        this.pending.delete(id);
        resolve({ ok: false, error: 'the watch did not answer' });
      }, kEventTimeout);
      this.pending.set(id, { resolve, timer });
      this.socket.send(JSON.stringify({ ...event, id }));
    });
  }

  async #post(event) {
    try {
      const response = await fetch('/api/events', {
        method: 'POST',
        headers: { 'Content-Type': 'application/json' },
        body: JSON.stringify(event),
      });
      const body = await response.json().catch(() => ({}));
      return { ok: response.ok && body.ok !== false, error: body.error ?? (response.ok ? undefined : `HTTP ${response.status}`) };
    } catch {
      return { ok: false, error: 'the watch is not reachable' };
    }
  }

  #open() {
    clearTimeout(this.retryTimer);
    this.retryTimer = null;
    this.#setState('connecting');
    let socket;
    try {
      socket = new WebSocket(this.url);
    } catch (error) {
      this.#scheduleRetry(String(error));
      return;
    }
    this.socket = socket;
    socket.addEventListener('open', () => {
      this.delay = kMinimumDelay;
      this.#setState('open');
    });
    socket.addEventListener('message', (event) => this.#receive(event.data));
    socket.addEventListener('close', () => {
      if (this.socket !== socket) return;
      this.socket = null;
      this.#failPending('the connection closed');
      this.#scheduleRetry();
    });
    socket.addEventListener('error', () => {
      // 'close' follows and retries.
    });
  }

  #receive(data) {
    let message;
    try {
      message = JSON.parse(data);
    } catch {
      console.warn('watch stream: a message that is not JSON was skipped');
      return;
    }
    const kind = classify(message);
    switch (kind) {
      case 'snapshot': this.handlers.onSnapshot?.(message.snapshot ?? message); break;
      case 'batch': this.handlers.onBatch?.(message); break;
      case 'result': {
        const waiting = this.pending.get(message.id);
        if (waiting) {
          this.pending.delete(message.id);
          clearTimeout(waiting.timer);
          waiting.resolve(resultOf(message));
        }
        break;
      }
      case 'echo': {
        const waiting = this.echoes.get(message.id);
        if (waiting) {
          this.echoes.delete(message.id);
          waiting(performance.now());
        }
        break;
      }
      case 'log': this.handlers.onLog?.(unwrap(message, kind)); break;
      case 'notification': this.handlers.onNotification?.(unwrap(message, kind)); break;
      default: break;
    }
  }

  #failPending(reason) {
    for (const { resolve, timer } of this.pending.values()) {
      clearTimeout(timer);
      resolve({ ok: false, error: reason });
    }
    this.pending.clear();
  }

  #scheduleRetry(detail) {
    this.#setState('closed', detail);
    clearTimeout(this.retryTimer);
    this.retryTimer = setTimeout(() => this.#open(), this.delay);
    this.delay = Math.min(kMaximumDelay, this.delay * 2);
  }

  #retryNow() {
    if (this.state !== 'closed') return;
    this.delay = kMinimumDelay;
    this.#open();
  }

  #setState(state, detail) {
    this.state = state;
    this.handlers.onStatus?.(state, detail);
  }
}
