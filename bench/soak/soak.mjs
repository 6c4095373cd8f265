// The long soak: the system test's soak for as long as asked, with its figures.
//
//   node --experimental-websocket bench/soak/soak.mjs --watch PATH --phone PATH --library PATH
//        --web-root DIR [--minutes 30] [--seed N] [--clients 3] [--pages 1] [--rate 20]
//        [--json FILE]
//
// Exits 1 when a check failed (an event without its result, an invalid snapshot, faces
// that disagree, memory grown more than 5 % after warm-up, descriptors or threads grown, a
// temporary file left), 77 when a program, node's WebSocket or Chromium is missing.
import { writeFileSync } from 'node:fs';
import { parseArgs, run } from '../../tests/web/browser/harness.mjs';
import { printFigures, runSoak } from '../../tests/system/soak.mjs';

const options = parseArgs(process.argv.slice(2));
const seed = Number(options.seed ?? (Date.now() % 1_000_000));
const seconds = Math.round(Number(options.minutes ?? 30) * 60);

run('bench_soak', async () => {
  console.log(`bench_soak: ${seconds / 60} minutes, seed ${seed}`);
  const { failures, figures } = await runSoak(options, {
    seconds, seed,
    clients: Number(options.clients ?? 3),
    pages: Number(options.pages ?? 1),
    rate: Number(options.rate ?? 20),
  });
  printFigures(figures);
  if (options.json) writeFileSync(options.json, JSON.stringify({ failures, figures }, null, 2));
  for (const failure of failures) console.error(`FAILED: ${failure}`);
  return failures.length > 0;
});
