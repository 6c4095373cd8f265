// The watch face: connects to vexo-watch, keeps the page's copy of the watch current and
// turns the user's gestures and keys into the watch's input events.
import { Banners } from './banners.js';
import { Connection } from './connection.js';
import { ProtocolLogPanel } from './protocol-log.js';
import { WatchState } from './store.js';
import { WatchView } from './view.js';

const kLongPress = 550;
const kDragStart = 8;
const kSwipeDistance = 48;

const state = new WatchState();
const statusLine = document.querySelector('#status');
const toast = document.querySelector('#toast');
const watch = document.querySelector('#watch');
const screen = document.querySelector('#screen');
const glanceButton = document.querySelector('#glance-button');

let toastTimer = 0;
function say(message) {
  toast.textContent = message;
  toast.hidden = false;
  clearTimeout(toastTimer);
  toastTimer = setTimeout(() => { toast.hidden = true; }, 4000);
}

async function send(event) {
  const result = await connection.send(event);
  if (!result.ok) say(`Not done: ${result.error ?? 'refused'}`);
  return result;
}

const view = new WatchView(state, document, { onEvent: send });
const log = new ProtocolLogPanel(document.querySelector('#log'));
const banners = new Banners(document.querySelector('#banners'), { onEvent: send, onMessage: say });

function focusedObjectId() {
  return document.activeElement?.closest?.('[data-id]')?.dataset.id;
}

async function resynchronise() {
  try {
    const response = await fetch('/api/snapshot', { cache: 'no-store' });
    if (response.ok) applySnapshot(await response.json());
  } catch {
    // The stream's next snapshot will do.
  }
}

function applySnapshot(snapshot) {
  const focused = focusedObjectId();
  if (!state.applySnapshot(snapshot)) return;
  view.renderAll();
  watch.classList.add('ready');
  if (focused) document.querySelector(`[data-id="${CSS.escape(focused)}"]`)?.focus();
}

const connection = new Connection({
  onSnapshot: applySnapshot,
  onBatch(batch) {
    const changes = state.applyBatch(batch);
    if (changes.gap) resynchronise();
    else if (!changes.stale) view.applyChanges(changes);
  },
  onLogReset: () => log.reset(),
  onLog: (record) => log.add(record),
  onNotifications: (notifications) => banners.replaceAll(notifications),
  onNotification: (notification) => banners.show(notification),
  onNotificationClosed: (id) => banners.close(id),
  onStatus(status, detail) {
    document.body.dataset.connection = status;
    if (status === 'open') {
      statusLine.textContent = 'Connected to the watch';
    } else if (status === 'connecting') {
      statusLine.textContent = state.loaded ? 'Reconnecting to the watch…' : 'Connecting to the watch…';
    } else {
      statusLine.textContent = 'The watch is not reachable. Reconnecting by itself…';
      if (detail) console.warn('watch stream:', detail);
      if (location.protocol === 'https:') checkStillPaired();
    }
  },
});

// A device that was revoked while open shows the pairing page instead of retrying forever.
async function checkStillPaired() {
  try {
    const response = await fetch('/api/snapshot', { cache: 'no-store' });
    if (response.status === 401) location.reload();
  } catch {
    // Not reachable: the stream keeps retrying.
  }
}
connection.start();

// For tests and the benchmark: the page's state and link, read-only by convention.
window.vexoFace = { state, connection, view, log: log.records };

// Glance and menu controls beside the watch.
glanceButton.addEventListener('click', () => send({ type: state.navigation.glance.visible ? 'hideGlance' : 'showGlance' }));
document.querySelector('#menu-button').addEventListener('click', () => toggleMenu());
document.addEventListener('watch:navigation', (event) => {
  const visible = event.detail.glance.visible;
  glanceButton.setAttribute('aria-pressed', String(visible));
  glanceButton.textContent = visible ? 'Hide glance' : 'Show glance';
});
// A tap on the glance opens the application, as on the watch.
document.querySelector('#glance').addEventListener('click', () => {
  if (state.navigation.glance.visible) send({ type: 'hideGlance' });
});

function menuOpen() {
  const screenState = state.visibleScreen();
  return !!(screenState?.menuId && state.object(screenState.menuId)?.open);
}

function toggleMenu() {
  send({ type: menuOpen() ? 'closeMenu' : 'openMenu' });
}

// Swipes, long presses and right clicks on the face.
let press = null;
screen.addEventListener('pointerdown', (event) => {
  if (event.button !== 0 || event.target.closest('#menu, #banners, .wk-slider')) return;
  press = { x: event.clientX, y: event.clientY, id: event.pointerId, dragging: false, longPressed: false };
  press.timer = setTimeout(() => {
    if (!press || press.dragging) return;
    press.longPressed = true;
    send({ type: 'openMenu' });
  }, kLongPress);
});
screen.addEventListener('pointermove', (event) => {
  if (!press || event.pointerId !== press.id) return;
  const dx = event.clientX - press.x;
  const dy = event.clientY - press.y;
  if (!press.dragging && Math.hypot(dx, dy) > kDragStart) {
    clearTimeout(press.timer);
    const pagesShown = state.navigation.modals.length === 0 && !state.navigation.glance.visible;
    if (Math.abs(dx) > Math.abs(dy) && pagesShown) {
      press.dragging = true;
      screen.setPointerCapture(event.pointerId);
    } else {
      press.moved = true;
    }
  }
  if (press.dragging) view.dragPages(dx / scale());
});
function endPress(event) {
  if (!press || event.pointerId !== press.id) return;
  clearTimeout(press.timer);
  const ended = press;
  press = null;
  if (ended.dragging) {
    view.dragPages(0);
    const dx = (event.clientX - ended.x) / scale();
    const nav = state.navigation;
    const page = nav.currentPage + (dx < 0 ? 1 : -1);
    if (Math.abs(dx) >= kSwipeDistance && page >= 0 && page < nav.pages.length) send({ type: 'swipe', page });
  }
  // The click that ends a drag or a long press is not a tap.
  if (ended.dragging || ended.longPressed) {
    screen.dataset.suppressClick = '1';
    setTimeout(() => { screen.dataset.suppressClick = ''; }, 0);
  }
}
screen.addEventListener('pointerup', endPress);
screen.addEventListener('pointercancel', (event) => {
  if (press?.dragging) view.dragPages(0);
  endPress(event);
  screen.dataset.suppressClick = '';
});
// A short buzz on a tap, where the device can.
screen.addEventListener('click', (event) => {
  if (compact.matches && event.target.closest('.wk-button, .wk-row, .wk-switch, .dot')) navigator.vibrate?.(12);
});
screen.addEventListener('contextmenu', (event) => {
  event.preventDefault();
  send({ type: 'openMenu' });
});

// Keys: arrows swipe, M opens the menu, G the glance, Escape closes what is on top.
document.addEventListener('keydown', (event) => {
  if (event.defaultPrevented || event.altKey || event.ctrlKey || event.metaKey) return;
  const target = event.target;
  if (target.closest?.('input, textarea, select, #log')) return;
  const nav = state.navigation;
  switch (event.key) {
    case 'ArrowLeft':
    case 'ArrowRight': {
      if (nav.modals.length || nav.glance.visible || menuOpen()) return;
      const page = nav.currentPage + (event.key === 'ArrowRight' ? 1 : -1);
      if (page < 0 || page >= nav.pages.length) return;
      event.preventDefault();
      send({ type: 'swipe', page });
      break;
    }
    case 'm':
    case 'M':
      event.preventDefault();
      toggleMenu();
      break;
    case 'g':
    case 'G':
      event.preventDefault();
      glanceButton.click();
      break;
    case 'Escape':
      if (menuOpen()) send({ type: 'closeMenu' });
      else if (nav.glance.visible) send({ type: 'hideGlance' });
      else if (nav.modals.length) send({ type: 'closeModal' });
      else return;
      event.preventDefault();
      break;
    default:
      break;
  }
});

// The watch keeps its shape and grows or shrinks with the window; on a phone or a watch its
// screen alone fills the display.
const fit = document.querySelector('#watch-fit');
const compact = window.matchMedia('(max-width: 499px)');
function scale() {
  return Number(getComputedStyle(watch).getPropertyValue('--scale')) || 1;
}
function resize() {
  const stage = document.querySelector('#stage');
  const box = stage.getBoundingClientRect();
  const controls = document.querySelector('#watch-controls').getBoundingClientRect().height;
  const width = watch.offsetWidth;
  const height = watch.offsetHeight;
  if (compact.matches) {
    const factor = Math.min(window.innerWidth / width, window.innerHeight / height);
    watch.style.setProperty('--scale', String(factor));
    fit.style.width = `${width * factor}px`;
    fit.style.height = `${height * factor}px`;
    return;
  }
  const available = Math.min((box.width - 16) / width, (window.innerHeight - box.top - controls - 72) / height);
  const factor = Math.max(0.5, Math.min(2.2, available));
  watch.style.setProperty('--scale', String(factor));
  fit.style.width = `${width * factor}px`;
  fit.style.height = `${height * factor}px`;
}
window.addEventListener('resize', resize);
compact.addEventListener('change', () => {
  resize();
  keepScreenOn();
});
new ResizeObserver(resize).observe(document.querySelector('#stage'));
resize();

// A remote in the hand keeps the display on while the face is open (Screen Wake Lock needs a
// secure context: HTTPS or the computer's own loopback address). The lock ends whenever the
// page is hidden, so it is asked for again when it comes back.
let wakeLock = null;
async function keepScreenOn() {
  if (!compact.matches || !navigator.wakeLock || document.visibilityState !== 'visible' || wakeLock) return;
  try {
    wakeLock = await navigator.wakeLock.request('screen');
    wakeLock.addEventListener('release', () => { wakeLock = null; });
  } catch {
    // Refused (battery saver, no permission): the display sleeps as usual.
  }
}
document.addEventListener('visibilitychange', keepScreenOn);
keepScreenOn();
