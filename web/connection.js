// The page's link to vexo-watch: the WebSocket stream (snapshot, change batches, protocol-log
// records, notifications, event results) with reconnection, and events sent over it.

const kMinimumDelay = 250;
// A page is back within a second of the watch or the network coming back, with the whole face
// well inside two.
const kMaximumDelay = 1000;
const kEventTimeout = 10000;

// What a message of the stream is, by its "type" (see vexo-watch's WatchFace):
// snapshot, changes, log, notifications, notification, notificationClosed, result.
export function classify(message) {
  if (!message || typeof message !== 'object' || Array.isArray(message)) return 'unknown';
  switch (message.type) {
    case 'snapshot': return message.snapshot && typeof message.snapshot === 'object' ? 'snapshot' : 'unknown';
    case 'changes': return Array.isArray(message.changes) ? 'batch' : 'unknown';
    case 'log': return Array.isArray(message.records) ? 'log' : 'unknown';
    case 'notifications': return Array.isArray(message.notifications) ? 'notifications' : 'unknown';
    case 'notification': return message.notification && typeof message.notification === 'object' ? 'notification' : 'unknown';
    case 'notificationClosed': return 'notificationClosed';
    case 'result': return 'result';
    default: return 'unknown';
  }
}

// {ok, status, error?} of a result message.
export function resultOf(message) {
  const ok = message.ok === true;
  return { ok, status: message.status ?? (ok ? 200 : 409), error: ok ? undefined : (message.error ?? 'refused') };
}

export class Connection {
  // handlers: onSnapshot(snapshot), onBatch(batch), onLogReset(), onLog(record), onNotifications(all open),
  // onNotification(one), onNotificationClosed(id), onStatus(state, detail) with state
  // 'connecting' | 'open' | 'closed'.
  constructor(handlers, { location = window.location } = {}) {
    this.handlers = handlers;
    const scheme = location.protocol === 'https:' ? 'wss:' : 'ws:';
    this.url = `${scheme}//${location.host}/api/stream`;
    this.socket = null;
    this.delay = kMinimumDelay;
    this.nextId = 1;
    this.pending = new Map(); // id -> {resolve, timer}
    this.unnamed = []; // waiting for a result without "id" (an answer to a non-JSON message)
    this.retryTimer = null;
    this.state = 'connecting';
    this.welcomed = true;
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
        resolve({ ok: false, status: 0, error: 'the watch did not answer' });
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
      const ok = response.ok && body.ok !== false;
      return { ok, status: response.status, error: ok ? undefined : (body.error ?? `HTTP ${response.status}`) };
    } catch {
      return { ok: false, status: 0, error: 'the watch is not reachable' };
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
      for (const waiting of this.unnamed.splice(0)) waiting(-1);
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
    const handlers = this.handlers;
    switch (kind) {
      case 'snapshot':
        this.welcomed = false;
        handlers.onSnapshot?.(message.snapshot);
        break;
      case 'batch': handlers.onBatch?.(message); break;
      case 'log':
        // The first log message after a snapshot holds every record the watch keeps.
        if (!this.welcomed) handlers.onLogReset?.();
        this.welcomed = true;
        for (const record of message.records) handlers.onLog?.(record);
        break;
      case 'notifications': handlers.onNotifications?.(message.notifications); break;
      case 'notification': handlers.onNotification?.(message.notification); break;
      case 'notificationClosed': handlers.onNotificationClosed?.(message.id); break;
      case 'result': {
        if (!('id' in message)) {
          this.unnamed.shift()?.(performance.now());
          break;
        }
        const waiting = this.pending.get(message.id);
        if (waiting) {
          this.pending.delete(message.id);
          clearTimeout(waiting.timer);
          waiting.resolve(resultOf(message));
        }
        break;
      }
      default: break;
    }
  }

  // The cheapest round trip the stream has: a message that is not JSON, which the watch's
  // main loop answers with a 400 result before any interface object sees it, so it takes
  // the hops of an event without the phone. Resolves with the milliseconds it took, or -1
  // when the stream is closed.
  roundTrip() {
    if (!this.isOpen) return Promise.resolve(-1);
    const start = performance.now();
    return new Promise((resolve) => {
      this.unnamed.push((end) => resolve(end - start));
      this.socket.send('.');
    });
  }

  #failPending(reason) {
    for (const { resolve, timer } of this.pending.values()) {
      clearTimeout(timer);
      resolve({ ok: false, status: 0, error: reason });
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
