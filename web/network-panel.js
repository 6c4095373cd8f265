// The computer's own page, when vexo-watch serves the network too: its address and
// certificate fingerprint, a button that shows a new pairing code, and the paired devices
// with rename and revoke. Only the loopback page has it: the network refuses /api/network.
const panel = document.querySelector('#network');
const list = document.querySelector('#network-devices');
const codeFigure = document.querySelector('#network-code');
const qr = document.querySelector('#network-qr');
const expiry = document.querySelector('#network-expiry');

const kRefresh = 5000;
let countdown = 0;

function lastUsedText(seconds, now = Date.now()) {
  if (!seconds) return 'never';
  const ago = Math.max(0, Math.round(now / 1000 - seconds));
  if (ago < 90) return 'just now';
  if (ago < 90 * 60) return `${Math.round(ago / 60)} min ago`;
  return new Date(seconds * 1000).toLocaleString();
}

async function call(path, body) {
  const response = await fetch(path, {
    method: body ? 'POST' : 'GET',
    headers: body ? { 'Content-Type': 'application/json' } : {},
    body: body ? JSON.stringify(body) : undefined,
    cache: 'no-store',
  });
  const answer = await response.json().catch(() => ({}));
  if (!response.ok) throw new Error(answer.error ?? `HTTP ${response.status}`);
  return answer;
}

function button(text, onClick) {
  const element = document.createElement('button');
  element.type = 'button';
  element.textContent = text;
  element.addEventListener('click', onClick);
  return element;
}

function renderDevices(devices) {
  list.replaceChildren();
  if (!devices.length) {
    const row = list.insertRow();
    const cell = row.insertCell();
    cell.colSpan = 3;
    cell.className = 'network-none';
    cell.textContent = 'None yet.';
    return;
  }
  for (const device of devices) {
    const row = list.insertRow();
    row.dataset.device = device.name;
    row.insertCell().textContent = device.name;
    row.insertCell().textContent = lastUsedText(device.lastUsed);
    const actions = row.insertCell();
    actions.append(
      button('Rename', async () => {
        const to = window.prompt(`New name for “${device.name}”`, device.name);
        if (!to || to === device.name) return;
        await act('/api/network/rename', { name: device.name, to });
      }),
      button('Revoke', () => act('/api/network/revoke', { name: device.name })),
    );
    actions.lastChild.classList.add('danger');
  }
}

async function act(path, body) {
  try {
    await call(path, body);
  } catch (error) {
    window.alert(error.message);
  }
  await refresh();
}

async function refresh() {
  let state;
  try {
    state = await call('/api/network');
  } catch {
    return;
  }
  panel.hidden = !state.enabled;
  if (!state.enabled) return;
  const link = document.querySelector('#network-url');
  link.textContent = state.url;
  link.href = state.url;
  document.querySelector('#network-fingerprint').textContent = state.fingerprint;
  renderDevices(state.devices);
}

document.querySelector('#network-pair').addEventListener('click', async () => {
  let code;
  try {
    code = await call('/api/network/pairing', {});
  } catch (error) {
    window.alert(error.message);
    return;
  }
  // The server made the picture; it is our own markup, not the network's.
  qr.innerHTML = code.qr;
  qr.dataset.url = code.url;
  codeFigure.hidden = false;
  let left = code.expires;
  clearInterval(countdown);
  const tick = () => {
    expiry.textContent = left > 0 ? `Scan with the phone or watch: valid for ${left} s, once.` : 'Expired.';
    if (left <= 0) {
      clearInterval(countdown);
      codeFigure.hidden = true;
      qr.replaceChildren();
      delete qr.dataset.url;
    }
    left -= 1;
  };
  tick();
  countdown = setInterval(tick, 1000);
});

if (location.protocol === 'http:') {
  refresh();
  setInterval(refresh, kRefresh);
}
