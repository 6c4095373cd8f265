// The page's copy of the watch: snapshots and change batches in the host's format.
import assert from 'node:assert/strict';
import test from 'node:test';
import { WatchState } from '../../../web/store.js';

const frame = (y, height = 20) => ({ x: 0, y, width: 100, height });

function snapshot(revision = 4) {
  return {
    revision,
    screen: { width: 312, height: 390 },
    started: true, currentPage: 0, visibleScreen: 'page-0',
    pages: [{
      id: 'page-0', controller: 'turntable1', role: 'page', active: true, contentHeight: 300,
      objects: [{
        id: 'g1', kind: 'group', frame: frame(0, 60), hidden: false,
        children: [{ id: 'l1', kind: 'label', frame: frame(0), hidden: false, text: '--' }],
      }, {
        id: 't1', kind: 'table', frame: frame(60, 40), hidden: false,
        rows: [{ rowType: 'songItemRowType', selectable: true,
          group: { id: 'r1', kind: 'group', frame: frame(60), hidden: false,
            children: [{ id: 'r1l', kind: 'label', frame: frame(60), hidden: false, text: 'Song' }] } }],
      }],
      menu: { id: 'm1', kind: 'menu', items: [], open: false },
    }],
    modals: [],
    glance: { visible: false, screen: null },
  };
}

test('a snapshot is kept flat with children by identifier', () => {
  const state = new WatchState();
  assert.equal(state.applySnapshot({ nothing: true }), false);
  assert.equal(state.loaded, false);
  assert.equal(state.applySnapshot(snapshot()), true);
  assert.deepEqual(state.object('g1').children, ['l1']);
  assert.equal(state.object('l1').text, '--');
  assert.deepEqual(state.object('t1').rows, [{ rowType: 'songItemRowType', selectable: true, groupId: 'r1' }]);
  assert.equal(state.screen('page-0').menuId, 'm1');
  assert.equal(state.navigation.active, 'page-0');
});

test('batches apply in revision order; old ones are skipped and a gap asks for a snapshot', () => {
  const label = (text) => ({ change: 'object', screen: 'page-0', object: { id: 'l1', kind: 'label', frame: frame(0), text } });
  const rows = [
    // [revision, expected outcome, label text afterwards]
    [4, 'stale', '--'],
    [3, 'stale', '--'],
    [5, 'applied', 'A'],
    [5, 'stale', 'A'],
    [7, 'gap', 'A'],
    [6, 'applied', 'B'],
  ];
  const state = new WatchState();
  assert.equal(state.applyBatch({ revision: 1, changes: [] }).stale, true, 'nothing before a snapshot');
  state.applySnapshot(snapshot(4));
  const texts = { 5: 'A', 6: 'B', 7: 'C', 3: 'X', 4: 'X' };
  for (const [revision, outcome, after] of rows) {
    const result = state.applyBatch({ revision, changes: [label(texts[revision])] });
    const got = result.stale ? 'stale' : result.gap ? 'gap' : 'applied';
    assert.equal(got, outcome, `revision ${revision}`);
    assert.equal(state.object('l1').text, after, `revision ${revision}`);
  }
  assert.deepEqual(state.applyBatch({ revision: 'x', changes: [] }), { stale: true });
});

test('screens come and go with their objects; navigation follows', () => {
  const state = new WatchState();
  state.applySnapshot(snapshot(0));
  const modal = {
    id: 'modal-1', controller: 'library', role: 'modal', active: false, contentHeight: 100,
    objects: [{ id: 'b9', kind: 'button', frame: frame(0, 36), hidden: false, title: 'Load More' }],
    menu: { id: 'm9', kind: 'menu', items: [], open: false },
  };
  const navigation = (modals, active) => ({
    change: 'navigation', started: true, currentPage: 0, visibleScreen: active,
    pages: ['page-0'], modals, glance: { visible: false, screen: null }, active,
  });
  let result = state.applyBatch({ revision: 1, changes: [navigation(['modal-1'], 'modal-1'), { change: 'screenAdded', screen: modal }] });
  assert.deepEqual(result, { navigation: true, added: ['modal-1'], removed: [], objects: [] });
  assert.equal(state.visibleScreen().id, 'modal-1');
  assert.equal(state.object('b9').title, 'Load More');

  result = state.applyBatch({ revision: 2, changes: [navigation([], 'page-0'), { change: 'screenRemoved', screen: 'modal-1' }, { change: 'whatever' }] });
  assert.deepEqual(result.removed, ['modal-1']);
  assert.equal(state.object('b9'), undefined);
  assert.equal(state.object('m9'), undefined);
  assert.equal(state.screen('page-0').active, true);
  // An object record for a screen that is gone changes nothing.
  result = state.applyBatch({ revision: 3, changes: [{ change: 'object', screen: 'modal-1', object: { id: 'b9', kind: 'button' } }] });
  assert.deepEqual(result.objects, []);
  assert.equal(state.object('b9'), undefined);
});

test('a table record replaces its rows and forgets the rows that went', () => {
  const state = new WatchState();
  state.applySnapshot(snapshot(0));
  const row = (id, y) => ({ rowType: 'songItemRowType', selectable: true,
    group: { id, kind: 'group', frame: frame(y), hidden: false, children: [{ id: `${id}l`, kind: 'label', frame: frame(y), text: id }] } });
  state.applyBatch({ revision: 1, changes: [{ change: 'object', screen: 'page-0',
    object: { id: 't1', kind: 'table', frame: frame(60, 400), hidden: false, rows: [row('r2', 60), row('r3', 440)] } }] });
  assert.deepEqual(state.object('t1').rows.map((r) => r.groupId), ['r2', 'r3']);
  assert.equal(state.object('r1'), undefined);
  assert.equal(state.object('r1l'), undefined);
  assert.equal(state.object('r3l').text, 'r3');
  // The content reaches the lowest shown object, past the height the screen was sent with.
  assert.equal(state.contentHeight('page-0'), 460);
});

test('the watch\'s locale and texts come with the snapshot; without them the page stays English', () => {
  const state = new WatchState();
  const rows = [
    [undefined, 'en', '', 'Cancel'],
    [{ language: 'de', identifier: 'de-DE', texts: { Cancel: 'Abbrechen' } }, 'de', 'de-DE', 'Abbrechen'],
    [{ language: 'de', identifier: 'de-DE', texts: { Cancel: '' } }, 'de', 'de-DE', 'Cancel'],
    [{ language: 42, identifier: ['x'], texts: 'Abbrechen' }, 'en', '', 'Cancel'],
  ];
  for (const [locale, language, identifier, cancel] of rows) {
    assert.ok(state.applySnapshot({ ...snapshot(), locale }));
    assert.deepEqual([state.locale.language, state.locale.identifier, state.text('Cancel')], [language, identifier, cancel]);
    assert.equal(state.text('Close the menu'), 'Close the menu', 'a text the watch did not send stays English');
  }
  // A German snapshot, then one from a watch restarted in English: nothing German stays.
  state.applySnapshot({ ...snapshot(), locale: { language: 'de', identifier: 'de-DE', texts: { Cancel: 'Abbrechen' } } });
  state.applySnapshot(snapshot());
  assert.equal(state.text('Cancel'), 'Cancel');
  assert.equal(state.locale.identifier, '');
});
