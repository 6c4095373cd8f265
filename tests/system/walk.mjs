// A seeded random walk over what the watch shows, as a restless person would use it: taps on
// every control on screen, rows of every list (library paging included), sliders, switches,
// swipes between the pages, the force-touch menu, modal screens closed, the glance, and the
// phone's notifications acted on or dismissed. Each step reads the walker's own mirror of
// the watch, so the events fit what is on screen or are refused by it (409), never malformed.
import { sleep, waitUntil } from './rig.mjs';

// mulberry32: small, fast and the same on every machine.
export function randomSource(seed) {
  let a = seed >>> 0;
  const next = () => {
    a = (a + 0x6d2b79f5) >>> 0;
    let t = a;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
  return {
    next,
    below: (n) => Math.floor(next() * n),
    pick: (list) => list[Math.floor(next() * list.length)],
    chance: (p) => next() < p,
  };
}

// The shown objects of a screen, depth first (hidden groups hide what they hold).
export function shownObjects(state, screenId) {
  const screen = state.screen(screenId);
  const out = [];
  const visit = (id) => {
    const object = state.object(id);
    if (!object || object.hidden) return;
    out.push(object);
    for (const child of object.children ?? []) visit(child);
    for (const row of object.rows ?? []) visit(row.groupId);
  };
  for (const id of screen?.rootIds ?? []) visit(id);
  return out;
}

export function visibleController(state) {
  return state.visibleScreen()?.controller;
}

// One event for what `state` shows, with a name for the coverage count.
export function nextEvent(state, random, notifications = []) {
  const navigation = state.navigation;
  const screen = state.visibleScreen();
  if (navigation.glance.visible) return random.chance(0.8) ? ['glance:hide', { type: 'hideGlance' }] : ['glance:show', { type: 'showGlance' }];
  const menu = screen?.menuId ? state.object(screen.menuId) : undefined;
  if (menu?.open) {
    if (menu.items.length && random.chance(0.6)) return [`menu:${screen.controller}:pick`, { type: 'pickMenuItem', index: random.below(menu.items.length) }];
    return ['menu:close', { type: 'closeMenu' }];
  }
  const open = [...notifications];
  if (open.length && random.chance(0.3)) {
    const notification = random.pick(open);
    if (notification.actions.length && random.chance(0.7)) {
      const action = random.pick(notification.actions);
      return [`notification:${action.identifier}`, { type: 'notificationAction', notification: notification.id, identifier: action.identifier }];
    }
    return ['notification:dismiss', { type: 'dismissNotification', notification: notification.id }];
  }
  const roll = random.next();
  if (roll < 0.08 && navigation.modals.length === 0) return ['swipe', { type: 'swipe', page: random.below(navigation.pages.length || 3) }];
  if (roll < 0.13 && navigation.modals.length > 0) return ['modal:close', { type: 'closeModal' }];
  if (roll < 0.16 && menu?.items?.length) return [`menu:${screen.controller}:open`, { type: 'openMenu' }];
  if (roll < 0.17) return ['glance:show', { type: 'showGlance' }];
  const controls = [];
  for (const object of shownObjects(state, screen?.id)) {
    const name = `${screen.controller}:${object.kind}:${object.action ?? object.segue?.identifier ?? object.outlet ?? ''}`;
    if (object.kind === 'button' && object.enabled !== false && (object.action || object.segue)) {
      controls.push([name, { type: 'tap', object: object.id }]);
    } else if (object.kind === 'slider' && object.enabled !== false) {
      controls.push([name, { type: 'slide', object: object.id, step: random.chance(0.5) ? 1 : -1 }]);
    } else if (object.kind === 'switch' && object.enabled !== false) {
      controls.push([name, { type: 'flip', object: object.id }]);
    } else if (object.kind === 'table') {
      const rows = object.rows.map((row, index) => [row, index]).filter(([row]) => row.selectable);
      if (rows.length) controls.push([`${screen.controller}:row`, { type: 'selectRow', object: object.id, row: random.pick(rows)[1] }]);
    }
  }
  if (!controls.length) return ['swipe', { type: 'swipe', page: random.below(3) }];
  return random.pick(controls);
}

// Sends `event` through `face` and fails unless the watch does it.
async function must(face, event) {
  const result = await face.send(event);
  if (result.status !== 200) throw new Error(`${JSON.stringify(event)} gave ${result.status}: ${result.error ?? ''}`);
}

function find(state, controller, test) {
  const screen = [...state.screens.values()].find((s) => s.controller === controller);
  return screen ? shownObjects(state, screen.id).find(test) : undefined;
}

function waitForScreen(face, controller) {
  return waitUntil(`the ${controller} screen on ${face.name}`, () => visibleController(face.state) === controller);
}

export async function closeEverything(face) {
  for (let i = 0; i < 10; i++) {
    const state = face.state;
    if (state.navigation.glance.visible) await face.send({ type: 'hideGlance' });
    else if (state.visibleScreen()?.menuId && state.object(state.visibleScreen().menuId)?.open) await face.send({ type: 'closeMenu' });
    else if (state.navigation.modals.length) await face.send({ type: 'closeModal' });
    else return;
    // The change batch follows the result.
    await sleep(100);
  }
}

// Loads song `songIndex` of the first playlist on deck `deck` as a person does: the deck's
// library button, the first playlist, the song. Resolves with the song's name.
export async function loadSong(face, deck, songIndex = 0) {
  await closeEverything(face);
  const controller = `turntable${deck}`;
  await must(face, { type: 'swipe', page: deck === 1 ? 0 : 2 });
  await waitForScreen(face, controller);
  const library = find(face.state, controller, (o) => o.action === 'showLibrary');
  await must(face, { type: 'tap', object: library.id });
  await waitForScreen(face, 'library');
  const playlists = await waitUntil('playlists', () => find(face.state, 'library', (o) => o.kind === 'table' && o.rows.some((r) => r.selectable)));
  await must(face, { type: 'selectRow', object: playlists.id, row: playlists.rows.findIndex((r) => r.selectable) });
  await waitForScreen(face, 'itunesPlaylist');
  const songs = await waitUntil('songs', () => find(face.state, 'itunesPlaylist', (o) => o.kind === 'table' && o.rows.filter((r) => r.selectable).length > songIndex));
  const rows = songs.rows.map((row, index) => [row, index]).filter(([row]) => row.selectable);
  const [row, index] = rows[songIndex];
  const name = face.state.object(face.state.object(row.groupId).children.find((id) => face.state.object(id)?.outlet === 'nameLabel'))?.text;
  await must(face, { type: 'selectRow', object: songs.id, row: index });
  await waitUntil(`deck ${deck} to show ${name}`, () => find(face.state, controller, (o) => o.outlet === 'nameLabel')?.text === name, 30000);
  return name;
}

// The image of deck `deck`'s play button, as its page shows it.
export function playImage(state, deck) {
  const button = find(state, `turntable${deck}`, (o) => o.action === 'togglePlayback');
  return button?.backgroundImage?.name ?? '';
}

export async function play(face, deck) {
  await closeEverything(face);
  await must(face, { type: 'swipe', page: deck === 1 ? 0 : 2 });
  await waitForScreen(face, `turntable${deck}`);
  if (/pause/.test(playImage(face.state, deck))) return;
  await must(face, { type: 'tap', object: find(face.state, `turntable${deck}`, (o) => o.action === 'togglePlayback').id });
  await waitUntil(`deck ${deck} to play`, () => /pause/.test(playImage(face.state, deck)), 30000);
}

// Switches the mixer to automatic transitions (kept on the watch) and leaves it on screen.
export async function automaticTransitions(face) {
  await closeEverything(face);
  await must(face, { type: 'swipe', page: 1 });
  await waitForScreen(face, 'mixer');
  const opener = find(face.state, 'mixer', (o) => o.segue?.identifier === 'showTransitions');
  await must(face, { type: 'tap', object: opener.id });
  await waitForScreen(face, 'transitions');
  const toggle = await waitUntil('the transition mode switch', () => find(face.state, 'transitions', (o) => o.outlet === 'transitionModeSwitch'));
  if (!toggle.on) await must(face, { type: 'flip', object: toggle.id });
  await waitUntil('automatic mode', () => find(face.state, 'transitions', (o) => o.outlet === 'transitionModeSwitch')?.on === true);
  await must(face, { type: 'closeModal' });
  await waitForScreen(face, 'mixer');
}

// The crossfader's button toward `side` ('Left' or 'Right') on the mixer page.
export function crossfadeButton(state, side) {
  return find(state, 'mixer', (o) => o.action === `crossfade${side}`);
}

export function mixerObject(state, outlet) {
  return find(state, 'mixer', (o) => o.outlet === outlet);
}

export function deckObject(state, deck, outlet) {
  return find(state, `turntable${deck}`, (o) => o.outlet === outlet);
}
