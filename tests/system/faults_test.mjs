// Faults a person meets with the whole product running, each with the state before and
// after: the phone killed in the middle of a transition and restarted, the watch killed
// under two open pages, the container on a full file system, the media library index
// corrupt or locked by another process, and a stored message replaced by garbage. Prints a
// table of them. (A page that never reads is dropped by the face server: FaceServerTest.)
//
//   node --experimental-websocket tests/system/faults_test.mjs --watch PATH --phone PATH
//        --library PATH --wormhole PATH --web-root DIR [--only NAME]
import { spawn, spawnSync } from 'node:child_process';
import { closeSync, mkdtempSync, openSync, readdirSync, rmSync, writeFileSync, writeSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { launchBrowser, parseArgs, run, Skip } from '../web/browser/harness.mjs';
import { FaceClient, System, sleep, snapshotProblems, waitUntil } from './rig.mjs';
import {
  automaticTransitions, closeEverything, crossfadeButton, deckObject, loadSong, mixerObject, play, playImage,
  shownObjects, visibleController,
} from './walk.mjs';

const options = parseArgs(process.argv.slice(2));
const rows = [];

async function fault(name, body) {
  if (options.only && !name.includes(options.only)) return;
  const started = Date.now();
  try {
    const { before, after } = await body();
    rows.push({ name, verdict: 'ok', before, after, seconds: (Date.now() - started) / 1000 });
  } catch (error) {
    if (error instanceof Skip) rows.push({ name, verdict: 'skipped', before: error.message, after: '' });
    else rows.push({ name, verdict: 'FAILED', before: '', after: error.stack ?? String(error) });
  }
}

function check(condition, what) {
  if (!condition) throw new Error(what);
}

async function expectValidSnapshot(system, when) {
  const problems = snapshotProblems(await system.snapshot());
  check(problems.length === 0, `${when}: the snapshot is not valid: ${problems.join('; ')}`);
}

function temporaryFilesIn(directory) {
  try {
    return readdirSync(directory).filter((name) => name.endsWith('.tmp'));
  } catch {
    return [];
  }
}

const text = (state, deck, outlet) => deckObject(state, deck, outlet)?.text;

// A system started and a face on it; `body(system, face)` runs, and everything stops after.
async function withSystem(settings, body) {
  const system = new System(options, settings);
  const face = new FaceClient('face');
  try {
    if (!settings?.noLibrary) system.makeLibrary();
    if (settings?.prepare) await settings.prepare(system);
    if (!settings?.noPhone) await system.startPhone();
    await system.startWatch();
    await face.connect(system.port);
    return await body(system, face);
  } catch (error) {
    error.message += `\n--- vexo-phone ---\n${system.phone.output.slice(-2000)}\n--- vexo-watch ---\n${system.watch?.output.slice(-2000)}`;
    throw error;
  } finally {
    face.close();
    await system.stop();
  }
}

run('system.faults', async () => {
  await fault('phone killed with SIGKILL mid-transition, restarted', () => withSystem({}, async (system, face) => {
    const name = await loadSong(face, 1, 0);
    await loadSong(face, 2, 1);
    await automaticTransitions(face);
    await play(face, 1);
    await face.send({ type: 'swipe', page: 1 });
    await waitUntil('the mixer', () => visibleController(face.state) === 'mixer');
    const tap = await face.send({ type: 'tap', object: crossfadeButton(face.state, 'Right').id });
    check(tap.status === 200, `the crossfade tap gave ${tap.status}`);
    const moving = await waitUntil('the crossfader in the middle of its way', () => {
      const position = face.lastRecord.get('fromPhone:mixerStatus')?.contents?.crossfaderPosition;
      return position > 0.02 && position < 0.9 ? position : null;
    }, 30000);
    const watchPid = system.watch.pid;
    const killed = await system.phone.kill('SIGKILL');
    check(killed.signal === 'SIGKILL', 'the phone did not die of SIGKILL');
    const lastCrossfader = mixerObject(face.state, 'crossfaderImage')?.image?.name;
    await sleep(1500);
    await expectValidSnapshot(system, 'with the phone dead');
    check(system.watch.running && system.watch.pid === watchPid, 'the watch stopped with the phone');
    check(text(face.state, 1, 'nameLabel') === name, `deck 1 no longer shows "${name}" with the phone dead`);
    check(/pause/.test(playImage(face.state, 1)), 'deck 1 no longer shows the last status (playing) with the phone dead');
    const during = `phone dead: deck 1 "${text(face.state, 1, 'nameLabel')}", ${playImage(face.state, 1)}, crossfader ${lastCrossfader}`;
    await system.startPhone();
    // A fresh phone has no deck playing: deck 1's page shows that once it is on screen (a
    // page follows its deck only while it is active). The last song's name may stay.
    await face.send({ type: 'swipe', page: 0 });
    await waitUntil('the watch to show the restarted phone', () => !/pause/.test(playImage(face.state, 1)), 30000)
      .catch((error) => {
        throw new Error(`${error.message}: deck 1 shows "${text(face.state, 1, 'nameLabel')}", ${playImage(face.state, 1)}; last status ${JSON.stringify(face.lastRecord.get('fromPhone:turntableStatus1'))}; last action ${JSON.stringify(face.lastRecord.get('toPhone:turntableAction'))}`);
      });
    check(system.watch.pid === watchPid && system.watch.running, 'the watch was restarted');
    await expectValidSnapshot(system, 'after the phone restarted');
    const leftovers = temporaryFilesIn(system.messages);
    check(leftovers.length === 0, `temporary files left: ${leftovers}`);
    return {
      before: `transition running (crossfader at ${moving.toFixed(2)}), deck 1 playing "${name}"`,
      after: `${during}; after the restart: deck 1 "${text(face.state, 1, 'nameLabel')}", ${playImage(face.state, 1)}; same watch process; no temporary file`,
    };
  }));

  await fault('watch killed under two open pages', () => withSystem({}, async (system, face) => {
    const name = await loadSong(face, 1, 2);
    let browser;
    try {
      browser = await launchBrowser();
      const pages = [];
      for (let i = 0; i < 2; i++) {
        const page = await browser.newPage({ viewport: { width: 1280, height: 860 } });
        await page.goto(system.url);
        pages.push(page);
      }
      const shows = (page) => page.evaluate((expected) => {
        const label = document.querySelector('section.wk-screen[data-controller="turntable1"] [data-outlet="nameLabel"]');
        return document.body.dataset.connection === 'open' && label?.textContent.trim() === expected;
      }, name);
      for (const page of pages) await waitUntil('the page to show the deck', () => shows(page));
      await system.watch.kill('SIGKILL');
      const says = [];
      for (const page of pages) {
        await waitUntil('the page to say the watch is gone', () => page.evaluate(() => document.body.dataset.connection !== 'open'));
        says.push(await page.evaluate(() => document.querySelector('#status')?.textContent.trim()));
      }
      // Long enough for the pages to back off between their attempts.
      await sleep(2000);
      const restarted = Date.now();
      await system.startWatch();
      const elapsed = [];
      await Promise.all(pages.map(async (page, index) => {
        await waitUntil(`page ${index + 1} to show the whole watch again`, () => shows(page), 30000);
        elapsed[index] = Date.now() - restarted;
      }));
      for (const page of pages) {
        const problems = await page.evaluate(() => window.vexoFace.state.loaded);
        check(problems === true, 'a page has no state after reconnecting');
      }
      return {
        before: `two pages showing deck 1 "${name}"`,
        after: `pages said "${says[0]}"; after the restart both showed the whole state again in ${elapsed.map((ms) => `${(ms / 1000).toFixed(2)} s`).join(' and ')} (goal 2 s, counted from the watch's first line)`,
      };
    } finally {
      await browser?.close();
    }
  }));

  await fault('the container on a full file system', async () => {
    if (process.getuid?.() !== 0) throw new Skip('mounting a small tmpfs needs root');
    const mountPoint = mkdtempSync(join(tmpdir(), 'vexo-full-'));
    const mounted = spawnSync('mount', ['-t', 'tmpfs', '-o', 'size=2m,mode=0700', 'vexo-full', mountPoint], { encoding: 'utf8' });
    if (mounted.status !== 0) {
      rmSync(mountPoint, { recursive: true, force: true });
      throw new Skip(`cannot mount a tmpfs here: ${(mounted.stderr || mounted.error?.message || '').trim()}`);
    }
    try {
      return await withSystem({ containerRoot: mountPoint }, async (system, face) => {
        const name = await loadSong(face, 1, 0);
        await play(face, 1);
        const filler = join(mountPoint, 'filler');
        const fd = openSync(filler, 'w');
        const chunk = Buffer.alloc(4096, 1);
        try {
          for (;;) writeSync(fd, chunk);
        } catch {
          // ENOSPC: the file system is full.
        } finally {
          closeSync(fd);
        }
        await face.send({ type: 'swipe', page: 0 });
        await waitUntil('deck 1', () => visibleController(face.state) === 'turntable1');
        const toggle = shownObjects(face.state, face.state.visibleScreen().id).find((o) => o.action === 'togglePlayback');
        const imageBefore = playImage(face.state, 1);
        const paused = await face.send({ type: 'tap', object: toggle.id });
        check(paused.status === 200, `the tap gave ${paused.status}`);
        await waitUntil('the phone to say it cannot write', () => /not stored until writing works again/.test(system.phone.output), 20000);
        await sleep(1500);
        check(system.phone.running && system.watch.running, 'a program ended on the full disk');
        await expectValidSnapshot(system, 'on the full disk');
        const leftovers = temporaryFilesIn(system.messages);
        check(leftovers.length === 0, `partial files left on the full disk: ${leftovers}`);
        const imageFull = playImage(face.state, 1);
        rmSync(filler);
        // The phone's next status reaches the watch again: the deck's own poll, or this tap.
        const again = await face.send({ type: 'tap', object: toggle.id });
        check(again.status === 200, `the tap after freeing space gave ${again.status}`);
        await waitUntil('a status written after space came back', () => /written again/.test(system.phone.output) || face.lastRecord.has('fromPhone:turntableStatus1'), 20000);
        await waitUntil('deck 1 to follow the phone again', () => playImage(face.state, 1) !== imageFull || /pause/.test(imageFull), 20000);
        const warning = system.phone.output.split('\n').find((line) => /not stored until/.test(line));
        return {
          before: `2 MB tmpfs container, deck 1 playing "${name}" (${imageBefore})`,
          after: `full: the tap was answered, the phone logged "${warning.trim()}", the watch kept ${imageFull}, no partial file; space freed: deck 1 shows ${playImage(face.state, 1)}`,
        };
      });
    } finally {
      spawnSync('umount', [mountPoint]);
      rmSync(mountPoint, { recursive: true, force: true });
    }
  });

  const libraryFault = (how, prepare) => withSystem({ prepare, noPhone: true }, async (system, face) => {
    await expectValidSnapshot(system, `with the index ${how}`);
    const line = system.watch.output.split('\n').find((l) => /media library/i.test(l)) ?? '(no line)';
    await face.send({ type: 'swipe', page: 0 });
    await waitUntil('deck 1', () => visibleController(face.state) === 'turntable1');
    const library = deckObject(face.state, 1, 'artworkButton') ?? shownObjects(face.state, 'page-0').find((o) => o.action === 'showLibrary');
    const opened = await face.send({ type: 'tap', object: shownObjects(face.state, face.state.visibleScreen().id).find((o) => o.action === 'showLibrary')?.id ?? library?.id });
    check(opened.status === 200, `the library did not open (${opened.status} ${opened.error ?? ''})`);
    await waitUntil('the library screen', () => visibleController(face.state) === 'library');
    await sleep(1500);
    const table = shownObjects(face.state, face.state.visibleScreen().id).find((o) => o.kind === 'table');
    const selectable = table ? table.rows.filter((row) => row.selectable).length : 0;
    await closeEverything(face);
    check(system.watch.running, 'the watch ended');
    return { line: line.trim(), selectable };
  });

  await fault('the media library index corrupt', async () => {
    const result = await libraryFault('corrupt', (system) => {
      writeFileSync(system.env.VEXO_MEDIA_LIBRARY, Buffer.alloc(64 * 1024, 'not an index at all. '));
    });
    check(/media library/i.test(result.line), `no clear message: ${result.line}`);
    check(result.selectable === 0, `the library lists ${result.selectable} playlists from a corrupt index`);
    return { before: 'index overwritten with 64 KB of text', after: `the watch said "${result.line}"; it works, its library lists nothing` };
  });

  await fault('the media library index locked by another process', async () => {
    const python = spawnSync('python3', ['-c', 'import sqlite3'], { encoding: 'utf8' });
    if (python.status !== 0) throw new Skip('python3 with sqlite3 is needed to hold the lock');
    let locker;
    try {
      const result = await libraryFault('locked', async (system) => {
        locker = spawn('python3', ['-c', `import sqlite3, sys, time
c = sqlite3.connect(sys.argv[1], isolation_level=None)
c.execute('BEGIN EXCLUSIVE')
print('locked', flush=True)
time.sleep(120)`, system.env.VEXO_MEDIA_LIBRARY], { stdio: ['ignore', 'pipe', 'inherit'] });
        await new Promise((resolve, reject) => {
          locker.stdout.once('data', resolve);
          locker.once('exit', () => reject(new Error('the locking process ended')));
        });
      });
      // Readers of an index in write-ahead-log mode go on under a writer's lock; one that
      // cannot read must say so.
      check(result.selectable > 0 || /media library/i.test(result.line), `no playlists and no clear message: ${result.line}`);
      return {
        before: 'another process holds an exclusive lock on the index',
        after: result.selectable > 0 ? `the watch works and lists ${result.selectable} playlists (reads go on under the lock)` : `the watch said "${result.line}" and works with an empty library`,
      };
    } finally {
      locker?.kill('SIGKILL');
    }
  });

  await fault('a stored message replaced by garbage', () => withSystem({}, async (system, face) => {
    await face.send({ type: 'swipe', page: 1 });
    await waitUntil('the mixer', () => visibleController(face.state) === 'mixer');
    const volumeBefore = face.lastRecord.get('fromPhone:mixerStatus')?.contents?.volume;
    writeFileSync(join(system.messages, 'mixerStatus.archive'), Buffer.from('bplist00 garbage that is no archive'.repeat(20)));
    const posted = system.wormhole('post', 'mixerStatus');
    check(posted.status === 0, `wormhole post failed: ${posted.output}`);
    await waitUntil('the garbage read as nothing', () => {
      const record = face.lastRecord.get('fromPhone:mixerStatus');
      return record && record.contents === null;
    }, 20000);
    await expectValidSnapshot(system, 'after the garbage');
    // The watch started on garbage too.
    writeFileSync(join(system.messages, 'turntableSongInfo1.archive'), Buffer.from([0, 1, 2, 3, 255, 254]));
    face.close();
    await system.watch.kill('SIGTERM');
    await system.startWatch();
    await face.connect(system.port);
    await expectValidSnapshot(system, 'after a start on garbage');
    await face.send({ type: 'swipe', page: 1 });
    await waitUntil('the mixer', () => visibleController(face.state) === 'mixer');
    const slider = mixerObject(face.state, 'volumeSlider');
    const moved = await face.send({ type: 'slide', object: slider.id, step: -1 });
    check(moved.status === 200, `the volume slider refused: ${moved.error}`);
    await waitUntil('a fresh mixer status', () => typeof face.lastRecord.get('fromPhone:mixerStatus')?.contents?.volume === 'number', 20000);
    return {
      before: `mixer status with volume ${volumeBefore}`,
      after: `garbage read as nothing (logged as null), the watch kept running and started again on a garbage song file; the next status shows volume ${face.lastRecord.get('fromPhone:mixerStatus').contents.volume.toFixed(2)}`,
    };
  }));

  console.log('\n| fault | before | after | verdict |\n|---|---|---|---|');
  for (const row of rows) console.log(`| ${row.name} | ${row.before} | ${row.after.split('\n')[0]} | ${row.verdict}${row.seconds ? ` (${row.seconds.toFixed(1)} s)` : ''} |`);
  const failed = rows.filter((row) => row.verdict === 'FAILED');
  for (const row of failed) console.error(`\nFAILED: ${row.name}\n${row.after}`);
  if (rows.length && rows.every((row) => row.verdict === 'skipped')) throw new Skip(rows.map((row) => row.before).join('; '));
  return failed.length > 0;
});
