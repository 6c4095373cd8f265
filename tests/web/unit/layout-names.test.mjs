// The page draws whatever snapshot it is sent: no name of the interface layout (outlet,
// action, class, controller, row type) appears in its code, so renaming one in the layout
// cannot silently break the page.
import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import test from 'node:test';

const root = new URL('../../../', import.meta.url);

// Kinds, and the words the page and the host share for other things (a screen's role, a
// stream message, a socket event), are the protocol's own, not the layout's.
const kProtocolWords = new Set([
  'group', 'button', 'label', 'image', 'slider', 'switch', 'table', 'timer', 'menu',
  'glance', 'notification', 'close',
]);

function layoutNames() {
  const text = readFileSync(new URL('resources/Interface.json', root), 'utf8').replace(/^\s*\/\/.*$/gm, '');
  const layout = JSON.parse(text);
  const names = new Set([...Object.keys(layout.controllers), ...layout.pages]);
  const visit = (node) => {
    if (Array.isArray(node)) return node.forEach(visit);
    if (!node || typeof node !== 'object') return;
    for (const key of ['outlet', 'action', 'class', 'identifier', 'destination', 'slider']) {
      if (typeof node[key] === 'string') names.add(node[key]);
    }
    if (node.rowTypes) Object.keys(node.rowTypes).forEach((name) => names.add(name));
    Object.values(node).forEach(visit);
  };
  visit(layout);
  return [...names].filter((name) => !kProtocolWords.has(name));
}

test('the page knows no name of the interface layout', () => {
  const names = layoutNames();
  assert.ok(names.includes('volumeDownButton') && names.includes('turntable1'), 'the layout was read');
  const folder = new URL('web/', root);
  const sources = readdirSync(folder).filter((file) => /\.(js|html|css)$/.test(file));
  const found = [];
  for (const file of sources) {
    const code = readFileSync(new URL(file, folder), 'utf8');
    for (const name of names) {
      // Quoted anywhere; as a bare word too when no English text could use it (camelCase, digits).
      const quoted = `['"\`]${name}['"\`]`;
      const pattern = /[A-Z0-9]/.test(name) ? `${quoted}|\\b${name}\\b` : quoted;
      if (new RegExp(pattern).test(code)) found.push(`${file}: ${name}`);
    }
  }
  assert.deepEqual(found, []);
});
