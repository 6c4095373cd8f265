// The short soak inside ./test: the whole product for about half a minute under a seeded
// random walk (the seed is printed; VEXO_SOAK_SEED=<n> replays one).
//
//   node --experimental-websocket tests/system/soak_test.mjs --watch PATH --phone PATH
//        --library PATH --web-root DIR [--seconds 30] [--seed N]
import { parseArgs, run } from '../web/browser/harness.mjs';
import { printFigures, runSoak } from './soak.mjs';

const options = parseArgs(process.argv.slice(2));
const seed = Number(options.seed ?? process.env.VEXO_SOAK_SEED ?? (Date.now() % 1_000_000));
const seconds = Number(options.seconds ?? 30);

run('system.soak', async () => {
  console.log(`system.soak: seed ${seed} (replay with VEXO_SOAK_SEED=${seed})`);
  // Caches fill for the first minutes (the protocol log, the artwork of each song seen):
  // memory growth is judged only in runs long enough for that, and shown here.
  const growthLimit = seconds >= 300 ? 0.05 : Infinity;
  const { failures, figures } = await runSoak(options, { seconds, seed, growthLimit });
  printFigures(figures);
  for (const failure of failures) console.error(`FAILED: ${failure}`);
  return failures.length > 0;
});
