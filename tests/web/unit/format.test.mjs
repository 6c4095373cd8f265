// What the page shows for snapshot values: colours, images, timers, animations, names.
import assert from 'node:assert/strict';
import test from 'node:test';
import {
  animationFrame, base64Length, buttonName, clockText, cssColor, formatTimer, imageUrl, summarizeContents, timerSeconds,
} from '../../../web/format.js';
import { classify, resultOf } from '../../../web/connection.js';

test('colours and image addresses', () => {
  const rows = [
    [cssColor({ red: 0.918, green: 0.545, blue: 0.145, alpha: 1 }), 'rgba(234, 139, 37, 1)'],
    [cssColor({ red: 2, green: -1, blue: 0.5 }), 'rgba(255, 0, 128, 1)'],
    [cssColor(null), ''],
    [imageUrl({ name: 'tracking-active-24-f.png' }), '/assets/tracking-active-24-f.png'],
    [imageUrl({ name: 'a b/../c' }), '/assets/a%20b%2F..%2Fc'],
    [imageUrl({ data: 'img-7', bytes: 10 }), '/api/images/img-7'],
    [imageUrl({ name: '' }), ''],
    [imageUrl(null), ''],
  ];
  for (const [got, expected] of rows) assert.equal(got, expected);
});

test('timers count from their date while running and freeze when stopped', () => {
  const rows = [
    // timer, now, seconds, text in minutes and seconds
    [{ date: 1000, running: true, stoppedAt: null }, 1075.9, 75, '1:15'],
    [{ date: 1000, running: false, stoppedAt: 1010 }, 5000, 10, '0:10'],
    [{ date: 1000, running: false, stoppedAt: null }, 5000, 0, '0:00'],
    [{ date: 2000, running: true, stoppedAt: null }, 1940, 60, '1:00'], // counting down to a future date
    [{ date: 0, running: true, stoppedAt: null }, 3725, 3725, '62:05'],
    [{ date: 'x', running: true }, 10, 0, '0:00'],
  ];
  for (const [timer, now, seconds, text] of rows) {
    assert.equal(timerSeconds(timer, now), seconds);
    assert.equal(formatTimer(seconds), text);
  }
  assert.equal(formatTimer(3725, ['hour', 'minute', 'second']), '1:02:05');
});

test('animation frames follow the duration and stop after their repeats', () => {
  const frames = Array.from({ length: 24 }, (_, i) => `f${i}`);
  const forever = { frames, duration: 1.2, repeatCount: 0 };
  const twice = { frames, duration: 1.2, repeatCount: 2 };
  const rows = [
    [forever, 0, 0], [forever, 0.049, 0], [forever, 0.05, 1], [forever, 1.19, 23], [forever, 1.2, 0],
    [forever, 12.01, 0], [twice, 2.35, 23], [twice, 2.4, -1], [{ frames: [] }, 1, -1],
  ];
  for (const [animation, elapsed, expected] of rows) assert.equal(animationFrame(animation, elapsed), expected, `${elapsed}`);
});

test('protocol-log contents show data by its length', () => {
  const contents = {
    turntable: 1,
    song: { artworkImage: { $dataLength: 30720 }, name: 'A' },
    raw: { $data: 'AAECAw==' },
    when: { $date: 0 },
    list: [{ $dataLength: 0 }],
    $data: 'not alone',
  };
  assert.deepEqual(summarizeContents(contents), {
    turntable: 1,
    song: { artworkImage: '<30720 bytes>', name: 'A' },
    raw: '<4 bytes>',
    when: '2001-01-01T00:00:00.000Z',
    list: ['<0 bytes>'],
    $data: 'not alone',
  });
  assert.equal(base64Length(''), 0);
  assert.equal(base64Length('AAEC'), 3);
});

test('every button has a name, from its accessibility label, title and labels', () => {
  const rows = [
    [{ accessibilityLabel: 'Library', title: 'Library' }, [], 'Library'],
    [{ accessibilityLabel: 'Library for deck 1', title: 'Library 1' }, [], 'Library for deck 1'],
    [{ accessibilityLabel: 'Mediathek für Deck 1', title: 'Mediathek 1' }, [], 'Mediathek für Deck 1'],
    [{ accessibilityLabel: 'Loop', title: '1/4' }, [], 'Loop: 1/4'],
    [{ accessibilityLabel: 'Effect' }, ['Echo', '--'], 'Effect: Echo'],
    [{ accessibilityLabel: 'Skip backward', title: '«' }, [], 'Skip backward'],
    [{ accessibilityLabel: 'Sync' }, ['SYNC'], 'Sync'],
    [{ title: 'Something' }, ['else'], 'Something else'],
    [{ title: '‹' }, [], 'Button'],
  ];
  for (const [object, texts, expected] of rows) assert.equal(buttonName(object, texts), expected);
});

test('stream messages are told apart by their type', () => {
  const rows = [
    [{ type: 'snapshot', snapshot: { pages: [] } }, 'snapshot'],
    [{ type: 'snapshot' }, 'unknown'],
    [{ type: 'changes', revision: 3, changes: [] }, 'batch'],
    [{ type: 'log', records: [] }, 'log'],
    [{ type: 'log', records: {} }, 'unknown'],
    [{ type: 'notifications', notifications: [] }, 'notifications'],
    [{ type: 'notification', notification: { id: 'n1' } }, 'notification'],
    [{ type: 'notificationClosed', id: 'n1' }, 'notificationClosed'],
    [{ type: 'result', id: 'e1', ok: true, status: 200 }, 'result'],
    [{ type: 'surprise' }, 'unknown'],
    [[1, 2], 'unknown'],
    [null, 'unknown'],
  ];
  for (const [message, kind] of rows) assert.equal(classify(message), kind, JSON.stringify(message));
  assert.deepEqual(resultOf({ id: 'e2', ok: false, status: 409, error: 'no' }), { ok: false, status: 409, error: 'no' });
  assert.deepEqual(resultOf({ id: 'e1', ok: true, status: 200 }), { ok: true, status: 200, error: undefined });
  assert.deepEqual(resultOf({ ok: false }), { ok: false, status: 409, error: 'refused' });
});

test('the clock speaks the watch\'s locale, not the browser\'s', () => {
  const morning = new Date(2026, 10, 25, 11, 0);
  const evening = new Date(2026, 10, 25, 21, 5);
  const browser = (date) => date.toLocaleTimeString([], { hour: '2-digit', minute: '2-digit' });
  // Intl may put a narrow no-break space before "AM".
  const plain = (text) => text.replace(/\s/gu, ' ');
  const rows = [
    [morning, 'de-DE', '11:00'],
    [evening, 'de-DE', '21:05'],
    [evening, 'de', '21:05'],
    [morning, 'en-US', '11:00 AM'],
    [evening, 'en-US', '09:05 PM'],
    [evening, 'en-GB', '21:05'],
    [evening, '', plain(browser(evening))], // an older watch that sends none
    [evening, undefined, plain(browser(evening))],
    [evening, 'not a locale!', plain(browser(evening))],
  ];
  for (const [date, identifier, expected] of rows) assert.equal(plain(clockText(date, identifier)), expected, identifier);
});
