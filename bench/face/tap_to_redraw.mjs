// What the user feels: from the click on deck 1's play button in the real browser to the
// page showing the phone's confirmed change (the button's pause or play image), against the
// floor of the cheapest round trip on the same WebSocket, from the same page, in the same
// run. Taps and floor samples alternate so that both see the same machine.
//
//   node bench/face/tap_to_redraw.mjs --watch PATH --phone PATH --library PATH --web-root DIR
//        [--taps 200] [--screenshots DIR]
//
// Prints p50 and p99 of both and their ratios; exits 77 when Chromium, playwright-core or a
// program is missing.
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Face, loadSong, outlet } from '../../tests/web/browser/face.mjs';
import { launchBrowser, parseArgs, run, startPrograms } from '../../tests/web/browser/harness.mjs';

const options = parseArgs(process.argv.slice(2));
const taps = Math.max(10, Number(options.taps ?? 200));

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
    await face.waitForImage(play, /-active$/);

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
      const tap = [];
      const floor = [];
      for (let i = 0; i < count; i++) {
        const rtt = await connection.roundTrip();
        if (rtt >= 0) floor.push(rtt);
        const from = element.dataset.image;
        const done = changed(from);
        const start = performance.now();
        element.click();
        tap.push((await done) - start);
        // Let the page settle (the deck's one-second status poll aside) before the next tap.
        await new Promise((r) => setTimeout(r, 20));
      }
      return { tap, floor };
    }, { selector: play, count: taps });

    const tap50 = percentile(result.tap, 50);
    const tap99 = percentile(result.tap, 99);
    const floor50 = percentile(result.floor, 50);
    const floor99 = percentile(result.floor, 99);
    const ms = (v) => `${v.toFixed(2)} ms`;
    console.log(`tap-to-redraw over ${result.tap.length} taps: p50 ${ms(tap50)}, p99 ${ms(tap99)} (goal: p50 <= 10 ms, p99 <= 25 ms)`);
    console.log(`floor, WebSocket round trip over ${result.floor.length}: p50 ${ms(floor50)}, p99 ${ms(floor99)}`);
    console.log(`ratio to the floor: p50 ${(tap50 / floor50).toFixed(1)}x, p99 ${(tap99 / floor99).toFixed(1)}x`);
    console.log(`goal ${tap50 <= 10 && tap99 <= 25 ? 'met' : 'not met'}`);
    return false;
  } finally {
    await programs?.stop();
    await browser.close();
  }
});
