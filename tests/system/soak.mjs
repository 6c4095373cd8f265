// The soak: real vexo-phone and vexo-watch, WebSocket faces and a Chromium page following
// the watch, while a seeded random walk sends events at a steady rate, the phone plays and
// transitions, and the phone's notifications come and are acted on. It checks that every
// event gets its result, that the snapshot stays valid and that every face agrees with it
// after each quiet moment; at the end, that memory grew by at most the allowed share after
// warm-up, that descriptors and threads did not grow, and that no temporary file remains.
import { execFile } from 'node:child_process';
import { launchBrowser, Skip } from '../web/browser/harness.mjs';
import {
  FaceClient, System, neverReadingPage, processFigures, sleep, snapshotDigest, snapshotProblems, stateDifferences,
  stateDigest, waitUntil,
} from './rig.mjs';
import {
  automaticTransitions, closeEverything, crossfadeButton, loadSong, nextEvent, play, randomSource,
} from './walk.mjs';

const kWatchPageFlags = { viewport: { width: 1280, height: 860 } };

// Opens the face in Chromium; the page's console errors and failed requests are collected.
async function openPage(browser, url, problems) {
  const page = await browser.newPage(kWatchPageFlags);
  page.on('console', (message) => {
    if (message.type() === 'error') problems.push(`page console: ${message.text()}`);
  });
  page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
  page.on('response', (response) => {
    if (response.status() >= 400) problems.push(`page request ${response.url()} gave ${response.status()}`);
  });
  await page.goto(url);
  await page.waitForFunction(() => window.vexoFace?.state?.loaded === true, null, { timeout: 30000 });
  await page.evaluate(`window.__vexoDigest = ${stateDigest.toString()};`);
  return page;
}

async function pageDigestStart(page) {
  await page.evaluate(() => {
    const face = window.vexoFace;
    window.__digests = { [face.state.revision]: window.__vexoDigest(face.state) };
    window.__digestListener = () => { window.__digests[face.state.revision] = window.__vexoDigest(face.state); };
    face.connection.socket?.addEventListener('message', window.__digestListener);
  });
}

async function pageDigestAt(page, revision) {
  return page.evaluate((r) => {
    const face = window.vexoFace;
    if (face.state.revision < r) return null;
    face.connection.socket?.removeEventListener('message', window.__digestListener);
    return window.__digests[r] ?? `no digest at ${r} (at ${face.state.revision})`;
  }, revision);
}

function figuresOf(system) {
  return { phone: processFigures(system.phone.pid), watch: processFigures(system.watch.pid) };
}

const mb = (kb) => `${(kb / 1024).toFixed(1)} MB`;

// Runs the soak. options: the program paths; settings: {seconds, seed, clients, pages, rate,
// growthLimit, log}. Resolves with {failures, figures}.
export async function runSoak(options, settings) {
  const { seconds, seed, clients = 3, pages = 1, rate = 20, growthLimit = 0.05, log = console.log } = settings;
  const failures = [];
  const pageProblems = [];
  const random = randomSource(seed);
  const system = new System(options);
  let browser = null;
  const faces = [];
  const openPages = [];
  const coverage = new Map();
  const figures = { seed, seconds, events: 0, quietChecks: 0 };
  try {
    await system.start();
    for (let i = 0; i < clients; i++) {
      const face = new FaceClient(`face ${i + 1}`);
      await face.connect(system.port);
      faces.push(face);
    }
    if (pages > 0) {
      try {
        browser = await launchBrowser();
        for (let i = 0; i < pages; i++) openPages.push(await openPage(browser, system.url, pageProblems));
      } catch (error) {
        if (!(error instanceof Skip)) throw error;
        log(`soak: no Chromium page (${error.message})`);
      }
    }
    // A page that never reads: the server drops it once too much waits for it, and the
    // others must not notice.
    const stalled = await neverReadingPage(system.port);
    const [walker, director] = faces;
    await loadSong(walker, 1, 0);
    await loadSong(walker, 2, 1);
    await automaticTransitions(walker);
    await play(walker, 1);
    await closeEverything(walker);

    // A quiet moment: no new events, every result in, then every face at the snapshot's
    // revision shows what the snapshot shows.
    const quiet = async (label) => {
      await waitUntil(`every event's result (${label})`, () => faces.every((f) => f.pending.size === 0), 30000)
        .catch(() => failures.push(`${label}: events without a result: ${faces.flatMap((f) => f.overdue(0)).map((e) => JSON.stringify(e)).join(', ')}`));
      for (const face of faces) face.recordDigests();
      for (const page of openPages) await pageDigestStart(page);
      const snapshot = await system.snapshot();
      for (const problem of snapshotProblems(snapshot)) failures.push(`${label}: snapshot: ${problem}`);
      const expected = snapshotDigest(snapshot);
      const revision = snapshot.revision;
      await waitUntil(`every face at revision ${revision}`, () => faces.every((f) => f.state.revision >= revision), 30000)
        .catch((error) => failures.push(`${label}: ${error.message}`));
      for (const face of faces) {
        const digest = face.digests.get(revision);
        if (digest !== expected) {
          const differences = face.state.revision === revision ? ` (${stateDifferences(face.state, snapshot)})` : '';
          failures.push(`${label}: ${face.name} at revision ${revision} shows ${digest}, the snapshot ${expected}${differences}`);
        }
        face.stopDigests();
      }
      for (const [index, page] of openPages.entries()) {
        const digest = await waitUntil(`page ${index + 1} at revision ${revision}`, () => pageDigestAt(page, revision), 30000)
          .catch((error) => error.message);
        if (digest !== expected) failures.push(`${label}: page ${index + 1} at revision ${revision} shows ${digest}, the snapshot ${expected}`);
      }
      figures.quietChecks += 1;
    };

    const walk = async (until) => {
      let nextNotification = Date.now() + 4000;
      let nextTransition = Date.now() + 3000;
      let side = 'Right';
      const interval = 1000 / rate;
      let due = Date.now();
      while (Date.now() < until) {
        due += interval;
        if (walker.pending.size < 4 * rate) {
          const [name, event] = nextEvent(walker.state, random, walker.notifications.values());
          coverage.set(name, (coverage.get(name) ?? 0) + 1);
          figures.events += 1;
          walker.send(event);
        }
        if (Date.now() > nextNotification) {
          nextNotification = Date.now() + 6000;
          const args = random.chance(0.5) ? ['load', String(1 + random.below(2))] : ['automix'];
          execFile(options.phone, ['--group', system.group, 'notify', ...args], { env: system.env }, () => {});
        }
        // A second face starts a transition now and then, whatever the walker does.
        if (Date.now() > nextTransition && director) {
          nextTransition = Date.now() + 5000;
          const button = crossfadeButton(director.state, side);
          if (button && director.state.navigation.modals.length === 0 && !director.state.navigation.glance.visible) {
            director.send({ type: 'swipe', page: 1 }).then(() => director.send({ type: 'tap', object: button.id }));
            side = side === 'Right' ? 'Left' : 'Right';
          }
        }
        let fatal = false;
        for (const face of faces) {
          const overdue = face.overdue(30000);
          if (overdue.length) failures.push(`${face.name}: ${overdue.length} events without a result after 30 s`);
          for (const failure of face.failures.splice(0)) failures.push(failure);
          if (face.closed) failures.push(`${face.name}: the stream closed`);
          fatal ||= overdue.length > 0 || face.closed;
        }
        if (fatal) return true;
        await sleep(Math.max(0, due - Date.now()));
      }
      return false;
    };

    const start = Date.now();
    const end = start + seconds * 1000;
    const warmUp = start + Math.max(10, seconds * 0.25) * 1000;
    const quietEvery = Math.min(15000, Math.max(5000, seconds * 100));
    let baseline = null;
    const samples = [];
    // A disagreement is recorded and the walk goes on, so that a long run still gives its
    // figures; a face that lost its stream or its results ends the run.
    while (Date.now() < end) {
      if (await walk(Math.min(end, Date.now() + quietEvery))) break;
      await quiet(`quiet moment ${figures.quietChecks + 1}`);
      await sleep(500);
      const now = figuresOf(system);
      samples.push({ at: Math.round((Date.now() - start) / 1000), ...now });
      if (!baseline && Date.now() >= warmUp) baseline = { ...now, index: samples.length - 1 };
      log(`soak: ${samples.at(-1).at} s, ${figures.events} events; phone ${mb(now.phone.rssKb)} ${now.phone.fds} fds ${now.phone.threads} threads; watch ${mb(now.watch.rssKb)} ${now.watch.fds} fds ${now.watch.threads} threads`);
    }
    await closeEverything(walker);
    await quiet('the end');
    await sleep(1000);
    const last = figuresOf(system);
    baseline ??= samples[0] ?? last;
    figures.baseline = baseline;
    figures.end = last;
    figures.samples = samples;
    figures.answered = faces.reduce((sum, face) => sum + face.answered, 0);
    figures.sent = faces.reduce((sum, face) => sum + face.sent, 0);
    figures.statuses = faces.reduce((all, face) => {
      for (const [status, count] of Object.entries(face.statuses)) all[status] = (all[status] ?? 0) + count;
      return all;
    }, {});
    figures.coverage = Object.fromEntries([...coverage.entries()].sort((a, b) => b[1] - a[1]));
    figures.pages = openPages.length;
    // A paused socket does not see its end: read what waits, and see whether the end follows.
    stalled.socket.resume();
    await waitUntil('the end of the page that never read', () => stalled.closedAt, 5000).catch(() => {});
    figures.stalledPage = stalled.closedAt ? 'dropped by the watch (its unread messages passed the bound)' : 'still connected at the end';
    stalled.socket.destroy();
    figures.clients = faces.length;
    // The phone's resident size rises and falls by tens of megabytes with the songs its decks
    // read ahead, so single samples say little: a leak is a peak that keeps rising. The
    // peak of the first half after warm-up is compared with the peak of the second half.
    const settled = [...samples.slice(baseline.index ?? 0), last];
    const half = Math.floor(settled.length / 2);
    const peakOf = (list, which) => Math.max(...list.map((sample) => sample[which].rssKb));
    for (const which of ['phone', 'watch']) {
      const before = baseline[which];
      const after = last[which];
      const early = half > 0 ? peakOf(settled.slice(0, half), which) : before.rssKb;
      const late = half > 0 ? peakOf(settled.slice(half), which) : after.rssKb;
      figures[`${which}Peaks`] = { earlyKb: early, lateKb: late };
      const growth = (late - early) / early;
      figures[`${which}Growth`] = growth;
      if (growthLimit === Infinity) figures.growthNote = 'memory growth shown, judged only in runs of 5 minutes or more';
      if (growth > growthLimit) failures.push(`${which}: resident memory grew ${(growth * 100).toFixed(1)} % after warm-up (peak ${mb(early)} in the first half, ${mb(late)} in the second; allowed ${growthLimit * 100} %)`);
      if (after.fds > before.fds) failures.push(`${which}: open descriptors grew from ${before.fds} to ${after.fds}`);
      if (after.threads > before.threads) failures.push(`${which}: threads grew from ${before.threads} to ${after.threads}`);
    }
    if (figures.answered !== figures.sent) failures.push(`${figures.sent} events sent, ${figures.answered} answered`);
    for (const problem of pageProblems) failures.push(problem);
    const temporary = system.temporaryFiles();
    if (temporary.length) failures.push(`temporary files left: ${temporary.join(', ')}`);
    figures.temporaryFiles = temporary.length;
    return { failures, figures };
  } catch (error) {
    failures.push(error.stack ?? String(error));
    return { failures, figures };
  } finally {
    for (const face of faces) face.close();
    await browser?.close();
    if (failures.length) {
      log(`vexo-phone output:\n${system.phone.output.slice(-3000)}`);
      log(`vexo-watch output:\n${system.watch?.output.slice(-3000) ?? ''}`);
    }
    await system.stop();
  }
}

export function printFigures(figures, log = console.log) {
  const pct = (v) => `${(v * 100).toFixed(1)} %`;
  log(`seed ${figures.seed}; ${figures.seconds} s; ${figures.clients} WebSocket faces and ${figures.pages} Chromium page(s)`);
  log(`events: ${figures.sent} sent, ${figures.answered} answered (${Object.entries(figures.statuses ?? {}).map(([s, n]) => `${n} x ${s}`).join(', ')}); ${figures.quietChecks} quiet moments checked`);
  for (const which of ['phone', 'watch']) {
    const b = figures.baseline?.[which];
    const e = figures.end?.[which];
    if (!b || !e) continue;
    const peaks = figures[`${which}Peaks`];
    const peakText = peaks ? `; peak ${mb(peaks.earlyKb)} in the first half after warm-up, ${mb(peaks.lateKb)} in the second (${pct(figures[`${which}Growth`])})` : '';
    log(`${which}: resident ${mb(b.rssKb)} after warm-up, ${mb(e.rssKb)} at the end${peakText}; descriptors ${b.fds} -> ${e.fds}; threads ${b.threads} -> ${e.threads}`);
  }
  if (figures.growthNote) log(figures.growthNote);
  log(`a page that never read: ${figures.stalledPage}`);
  log(`temporary files left: ${figures.temporaryFiles}`);
  log(`controls used: ${Object.keys(figures.coverage ?? {}).length} kinds: ${Object.entries(figures.coverage ?? {}).map(([k, n]) => `${k} ${n}`).join(', ')}`);
}
