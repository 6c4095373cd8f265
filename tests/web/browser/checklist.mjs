// Runs a browser test's scenarios in order on one page of the face and reports each as a TAP
// line: one failing does not stop the next, and a Skip is neither a pass nor a failure.
import assert from 'node:assert/strict';
import { dismissBanners } from './face.mjs';
import { Skip } from './harness.mjs';

// `scenarios`: [name, async (context) => ...] pairs, each given `context`. `face`: the page
// they act on, whose uncaught errors the caller collects into `errors` (a scenario fails when
// the page threw during it). `logs`: the programs whose output is shown when one failed.
// Gives true when a scenario failed.
export async function runChecklist(scenarios, { face, errors, context, programs, options, logs }) {
  let passed = 0;
  let failed = 0;
  let skipped = 0;
  for (const [name, scenario] of scenarios) {
    try {
      // The phone's own notices (a song ending, a deck stopped) come at any time; a
      // person clears them before the next step, or they cover what it taps.
      await dismissBanners(face);
      await scenario(context);
      assert.deepEqual(errors, [], 'the page threw');
      passed += 1;
      console.log(`ok - ${name}`);
    } catch (error) {
      if (error instanceof Skip) {
        skipped += 1;
        console.log(`skipped - ${name}: ${error.message}`);
        continue;
      }
      failed += 1;
      errors.length = 0;
      console.log(`not ok - ${name}\n  ${String(error.stack ?? error).split('\n').slice(0, 6).join('\n  ')}`);
      await face.shot('failed').catch(() => {});
    }
  }
  for (const why of Object.values(programs.missing)) console.log(`note: ${why}`);
  console.log(`screenshots: ${options.screenshots}`);
  if (failed) {
    const outputs = logs.map((program) => `--- vexo-${program} output ---\n${programs[program].output.slice(-4000)}`);
    console.log(outputs.join('\n'));
  }
  console.log(`${passed} passed, ${failed} failed${skipped ? `, ${skipped} skipped` : ''}`);
  return failed > 0;
}
