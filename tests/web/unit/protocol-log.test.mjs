// The protocol log keeps the newest 500 records once each, newest first.
import assert from 'node:assert/strict';
import test from 'node:test';
import { LogRecords, contentsPreview, matchesFilter } from '../../../web/protocol-log.js';

test('records are kept newest first, once each, at most the capacity', () => {
  const log = new LogRecords(3);
  const record = (sequence) => ({ sequence, identifier: `m${sequence}` });
  const steps = [
    // sequence added, expected sequences kept (newest first), dropped
    [1, [1], []],
    [2, [2, 1], []],
    [2, [2, 1], []], // seen again after a reconnection
    [4, [4, 2, 1], []],
    [3, [4, 3, 2], [1]], // late, goes to its place; the oldest goes
    [5, [5, 4, 3], [2]],
    [1, [5, 4, 3, 1].slice(0, 3), [1]], // dropped before, so new again, and at once the oldest
  ];
  for (const [sequence, kept, dropped] of steps) {
    const result = log.add(record(sequence));
    assert.deepEqual(log.records.map((r) => r.sequence), kept, `after ${sequence}`);
    assert.deepEqual((result.dropped ?? []).map((r) => r.sequence), dropped, `after ${sequence}`);
  }
  assert.equal(log.add(null).added, false);
});

test('the filter matches identifiers by any of its words, case aside', () => {
  const rows = [
    ['', 'turntableStatus1', true],
    ['status1', 'turntableStatus1', true],
    ['STATUS', 'mixerStatus', true],
    ['mixer, library', 'libraryItems', true],
    ['mixer library', 'turntableAction', false],
    ['x', undefined, false],
  ];
  for (const [filter, identifier, expected] of rows) assert.equal(matchesFilter({ identifier }, filter), expected);
  assert.equal(contentsPreview({ a: { $dataLength: 5 } }), '{"a":"<5 bytes>"}');
  assert.equal(contentsPreview({ text: 'x'.repeat(200) }, 20).length, 20);
});
