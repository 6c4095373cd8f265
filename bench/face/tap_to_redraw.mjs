// What the user feels: from the click on deck 1's play button in the real browser to the
// page showing the phone's confirmed change (the button's pause or play image), against the
// floor of the cheapest round trip on the same WebSocket, from the same page, in the same
// run. Taps and floor samples alternate so that both see the same machine.
//
//   node --experimental-websocket bench/face/tap_to_redraw.mjs --watch PATH --phone PATH
//        --library PATH --web-root DIR [--taps 200] [--clients N] [--pages N] [--screenshots DIR]
//
// With --clients N, N WebSocket faces (node's own) follow every change as pages do, and
// --pages N opens N more Chromium pages beside the tapping one (default 2 with --clients).
// With faces following, it also reports the watch's CPU while they follow a running
// transition (8 s, deck 1 to deck 2), against the same faces with the watch idle.
//
// Prints p50 and p99 of both and their ratios, and the p50 of each stage of a tap (the
// action leaving the watch and the phone's status read, both by the watch's clock; the
// event's result, the status's log record and the change batch reaching the page; the
// redraw), so that a slow figure says where its time went. Exits 77 when Chromium,
// playwright-core or a program is missing.
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Face, loadSong, outlet } from '../../tests/web/browser/face.mjs';
import { launchBrowser, parseArgs, run, startPrograms } from '../../tests/web/browser/harness.mjs';
import { cpuSeconds, FaceClient, sleep, waitUntil } from '../../tests/system/rig.mjs';
import { automaticTransitions, closeEverything, crossfadeButton, loadSong as loadSongOver, visibleController } from '../../tests/system/walk.mjs';

const options = parseArgs(process.argv.slice(2));
const taps = Math.max(10, Number(options.taps ?? 200));
const clientCount = Number(options.clients ?? 0);
const extraPages = Number(options.pages ?? (clientCount > 0 ? 2 : 0));

// The watch's CPU over `seconds` as a share of one core.
async function cpuShare(pid, seconds) {
  const before = cpuSeconds(pid);
  const start = Date.now();
  await sleep(seconds * 1000);
  return (cpuSeconds(pid) - before) / ((Date.now() - start) / 1000);
}

function percentile(samples, p) {
  const sorted = [...samples].sort((a, b) => a - b);
  const index = Math.min(sorted.length - 1, Math.max(0, Math.ceil((p / 100) * sorted.length) - 1));
  return sorted[index];
}

run('bench_face_tap_to_redraw', async () => {
  const browser = await launchBrowser();
  let programs;
  try {
    programs = await startPrograms(options);
    const page = await browser.newPage({ viewport: { width: 1280, height: 860 } });
    const face = new Face(page, options.screenshots ?? join(tmpdir(), 'vexo-face-bench'));
    await face.open(programs.url);
    await loadSong(face, 1);
    await face.showPage(0);
    const play = outlet('turntable1', 'playButton');
    await face.waitForImage(play, /^turntable-(play|pause)/);
    const clients = [];
    for (let i = 0; i < clientCount; i++) {
      const client = new FaceClient(`face ${i + 1}`);
      await client.connect(Number(new URL(programs.url).port));
      clients.push(client);
    }
    for (let i = 0; i < extraPages; i++) {
      const other = await browser.newPage({ viewport: { width: 1280, height: 860 } });
      await other.goto(programs.url);
      await other.waitForFunction(() => window.vexoFace?.state?.loaded === true, null, { timeout: 30000 });
    }

    const result = await page.evaluate(async ({ selector, count }) => {
      const element = document.querySelector(selector);
      const connection = window.vexoFace.connection;
      // Resolves when the button shows an image other than `from`.
      const changed = (from) => new Promise((resolve) => {
        const observer = new MutationObserver(() => {
          if (element.dataset.image !== from) {
            observer.disconnect();
            resolve(performance.now());
          }
        });
        observer.observe(element, { attributes: true, attributeFilter: ['data-image'] });
      });
      // Where a tap's time goes, from what arrives on the stream: the event's result (the
      // watch sent the action), the protocol-log records of the action and of the phone's
      // status (stamped by the watch's clock), and the change batch that redraws.
      const arrivals = [];
      connection.socket.addEventListener('message', (event) => {
        // The time the page began to handle the message, the same for every listener.
        const now = event.timeStamp;
        let message;
        try {
          message = JSON.parse(event.data);
        } catch {
          return;
        }
        if (message.type === 'log') {
          for (const record of message.records ?? []) {
            arrivals.push({ kind: record.direction, identifier: record.identifier, now, stamped: record.time - performance.timeOrigin });
          }
        } else {
          arrivals.push({ kind: message.type, now });
        }
      });
      const tap = [];
      const floor = [];
      const stages = { result: [], action: [], status: [], statusShown: [], batch: [] };
      for (let i = 0; i < count; i++) {
        const rtt = await connection.roundTrip();
        if (rtt >= 0) floor.push(rtt);
        const from = element.dataset.image;
        const done = changed(from);
        arrivals.length = 0;
        const start = performance.now();
        element.click();
        const end = await done;
        tap.push(end - start);
        // Let the page settle (the deck's one-second status poll aside) before the next tap;
        // by then every listener has seen the messages of this one.
        await new Promise((r) => setTimeout(r, 20));
        const first = (test) => arrivals.find((a) => a.now >= start && test(a));
        const result = first((a) => a.kind === 'result');
        const action = first((a) => a.kind === 'toPhone');
        const status = first((a) => a.kind === 'fromPhone' && a.identifier === 'turntableStatus1');
        const statusAt = arrivals.indexOf(status);
        const batch = arrivals.find((a, index) => a.kind === 'changes' && index > statusAt);
        if (result) stages.result.push(result.now - start);
        if (action) stages.action.push(action.stamped - start);
        if (status) stages.status.push(status.stamped - start);
        if (status) stages.statusShown.push(status.now - start);
        if (batch) stages.batch.push(batch.now - start);
      }
      return { tap, floor, stages };
    }, { selector: play, count: taps });

    const tap50 = percentile(result.tap, 50);
    const tap99 = percentile(result.tap, 99);
    const floor50 = percentile(result.floor, 50);
    const floor99 = percentile(result.floor, 99);
    const ms = (v) => `${v.toFixed(2)} ms`;
    console.log(`tap-to-redraw over ${result.tap.length} taps: p50 ${ms(tap50)}, p99 ${ms(tap99)} (goal: p50 <= 10 ms, p99 <= 25 ms)`);
    console.log(`floor, WebSocket round trip over ${result.floor.length}: p50 ${ms(floor50)}, p99 ${ms(floor99)}`);
    console.log(`ratio to the floor: p50 ${(tap50 / floor50).toFixed(1)}x, p99 ${(tap99 / floor99).toFixed(1)}x`);
    const stage = (name, samples) => (samples.length ? `${name} ${ms(percentile(samples, 50))}` : `${name} -`);
    console.log(`p50 from the click: ${[
      stage('action sent (watch clock)', result.stages.action),
      stage('result on the page', result.stages.result),
      stage('status read (watch clock)', result.stages.status),
      stage('its log record on the page', result.stages.statusShown),
      stage('change batch on the page', result.stages.batch),
      stage('drawn', result.tap),
    ].join(', ')}`);
    console.log(`with ${clients.length} WebSocket faces and ${extraPages + 1} Chromium pages following`);
    console.log(`goal ${tap50 <= 10 && tap99 <= 25 ? 'met' : 'not met'}`);
    for (const client of clients) {
      if (client.closed || client.failures.length) console.log(`${client.name}: ${client.closed ? 'closed' : client.failures[0]}`);
    }
    if (clients.length) {
      // The watch's CPU while every face follows a running transition.
      const driver = clients[0];
      await loadSongOver(driver, 2, 1);
      await automaticTransitions(driver);
      await closeEverything(driver);
      const pid = programs.watch.process.pid;
      const idle = await cpuShare(pid, 4);
      await driver.send({ type: 'swipe', page: 1 });
      await waitUntil('the mixer', () => visibleController(driver.state) === 'mixer');
      await driver.send({ type: 'tap', object: crossfadeButton(driver.state, 'Right').id });
      const moving = await cpuShare(pid, 7);
      const messages = clients.reduce((sum, client) => sum + client.messages, 0);
      console.log(`watch CPU with ${clients.length} faces following: ${(moving * 100).toFixed(1)} % of one core during an 8 s transition, ${(idle * 100).toFixed(1)} % with deck 1 playing alone; ${messages} stream messages to the faces in all`);
      for (const client of clients) client.close();
    }
    return false;
  } finally {
    await programs?.stop();
    await browser.close();
  }
});
