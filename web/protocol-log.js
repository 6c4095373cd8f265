// The protocol log beside the watch: what the watch sent the phone and what came back,
// newest first, filterable by identifier, at most 500 kept.
import { summarizeContents } from './format.js';

export const kLogCapacity = 500;

// Keeps records newest first, without repeats (a record seen again after a reconnection
// carries the same sequence number), at most `capacity`.
export class LogRecords {
  constructor(capacity = kLogCapacity) {
    this.capacity = capacity;
    this.records = [];
    this.sequences = new Set();
  }

  // Adds `record`; returns {added, dropped} where dropped are the records pushed out.
  add(record) {
    if (!record || typeof record !== 'object') return { added: false, dropped: [] };
    const sequence = record.sequence;
    if (sequence !== undefined && this.sequences.has(sequence)) return { added: false, dropped: [] };
    if (sequence !== undefined) this.sequences.add(sequence);
    // Records arrive in order; one older than the newest kept goes to its place.
    let at = 0;
    if (sequence !== undefined) {
      while (at < this.records.length && this.records[at].sequence !== undefined && this.records[at].sequence > sequence) at++;
    }
    this.records.splice(at, 0, record);
    const dropped = this.records.splice(this.capacity);
    for (const old of dropped) this.sequences.delete(old.sequence);
    return { added: true, at, dropped };
  }

  clear() {
    this.records = [];
    this.sequences.clear();
  }
}

// Whether `record` passes `filter`: identifiers containing the text, case aside; several
// words separated by spaces or commas match any of them.
export function matchesFilter(record, filter) {
  const words = String(filter ?? '').toLowerCase().split(/[\s,]+/).filter(Boolean);
  if (words.length === 0) return true;
  const identifier = String(record.identifier ?? '').toLowerCase();
  return words.some((word) => identifier.includes(word));
}

function formatTime(milliseconds) {
  const date = new Date(Number(milliseconds));
  if (Number.isNaN(date.getTime())) return '';
  const pad = (n, w = 2) => String(n).padStart(w, '0');
  return `${pad(date.getHours())}:${pad(date.getMinutes())}:${pad(date.getSeconds())}.${pad(date.getMilliseconds(), 3)}`;
}

// One line of contents for the closed row: keys and short values.
export function contentsPreview(contents, limit = 90) {
  const text = JSON.stringify(summarizeContents(contents)) ?? 'null';
  return text.length > limit ? `${text.slice(0, limit - 1)}…` : text;
}

export class ProtocolLogPanel {
  constructor(root) {
    this.records = new LogRecords();
    this.list = root.querySelector('#log-list');
    this.filter = root.querySelector('#log-filter');
    this.count = root.querySelector('#log-count');
    this.pause = root.querySelector('#log-pause');
    this.identifiers = root.querySelector('#log-identifiers');
    this.known = new Set();
    this.paused = false;
    this.held = [];
    this.rows = new Map(); // record -> its list item
    this.drawPending = false;
    this.filter.addEventListener('input', () => this.#applyFilter());
    root.querySelector('#log-clear').addEventListener('click', () => this.reset());
    this.pause.addEventListener('click', () => {
      this.paused = !this.paused;
      this.pause.setAttribute('aria-pressed', String(this.paused));
      this.pause.textContent = this.paused ? 'Resume' : 'Pause';
      if (!this.paused) {
        const held = this.held;
        this.held = [];
        for (const record of held) this.add(record);
      }
    });
    this.#updateCount();
  }

  // Forgets every record (the watch sends the ones it keeps again on a new connection).
  reset() {
    this.records.clear();
    this.held = [];
    this.rows.clear();
    this.list.replaceChildren();
    this.#updateCount();
  }

  // Keeps `record` at once (tests and the count read it), and draws it when the page is
  // idle: a status message comes with a change of the watch, which is drawn first.
  add(record) {
    if (this.paused) {
      this.held.push(record);
      if (this.held.length > kLogCapacity) this.held.shift();
      this.#updateCount();
      return;
    }
    const { added } = this.records.add(record);
    if (!added) return;
    if (record.identifier && !this.known.has(record.identifier)) {
      this.known.add(record.identifier);
      const option = document.createElement('option');
      option.value = record.identifier;
      this.identifiers.append(option);
    }
    this.#scheduleDraw();
  }

  #scheduleDraw() {
    if (this.drawPending) return;
    this.drawPending = true;
    const draw = () => {
      this.drawPending = false;
      this.#draw();
    };
    if (window.requestIdleCallback) requestIdleCallback(draw, { timeout: 250 });
    else setTimeout(draw, 50);
  }

  // Makes the list show the kept records in their order: new rows in, dropped rows out.
  #draw() {
    const kept = this.records.records;
    const wanted = new Set(kept);
    for (const [record, row] of this.rows) {
      if (!wanted.has(record)) {
        row.remove();
        this.rows.delete(record);
      }
    }
    const filter = this.filter.value;
    kept.forEach((record, index) => {
      let row = this.rows.get(record);
      if (!row) {
        row = this.#row(record);
        row.hidden = !matchesFilter(record, filter);
        this.rows.set(record, row);
      }
      const at = this.list.children[index] ?? null;
      if (at !== row) this.list.insertBefore(row, at);
    });
    this.#updateCount();
  }

  #row(record) {
    const item = document.createElement('li');
    item.className = `log-record ${record.direction === 'toPhone' ? 'to-phone' : 'from-phone'}`;
    item.dataset.identifier = record.identifier ?? '';
    const details = document.createElement('details');
    const summary = document.createElement('summary');
    const arrow = Object.assign(document.createElement('span'), { className: 'log-direction' });
    arrow.textContent = record.direction === 'toPhone' ? '→ phone' : '← phone';
    const identifier = Object.assign(document.createElement('span'), { className: 'log-identifier' });
    identifier.textContent = record.identifier ?? '(no identifier)';
    const time = Object.assign(document.createElement('time'), { className: 'log-time' });
    time.textContent = formatTime(record.time);
    if (Number.isFinite(Number(record.time))) time.dateTime = new Date(Number(record.time)).toISOString();
    const preview = Object.assign(document.createElement('span'), { className: 'log-preview' });
    preview.textContent = contentsPreview(record.contents);
    summary.append(arrow, identifier, time, preview);
    const body = document.createElement('pre');
    // Filled when opened: most records are never read.
    details.addEventListener('toggle', () => {
      if (details.open && !body.textContent) body.textContent = JSON.stringify(summarizeContents(record.contents), null, 2);
    });
    details.append(summary, body);
    item.append(details);
    return item;
  }

  #applyFilter() {
    const filter = this.filter.value;
    for (const item of this.list.children) item.hidden = !matchesFilter({ identifier: item.dataset.identifier }, filter);
    this.#updateCount();
  }

  #updateCount() {
    const total = this.records.records.length;
    const shown = this.filter.value.trim() === ''
      ? total
      : this.records.records.filter((record) => matchesFilter(record, this.filter.value)).length;
    const held = this.held.length ? `, ${this.held.length} waiting` : '';
    this.count.textContent = shown === total ? `${total} records${held}` : `${shown} of ${total} records${held}`;
  }
}
