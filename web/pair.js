// The page of a device that is not paired: exchanges the pairing code that the QR code put in
// the address's fragment for this device's token (a cookie the page never sees), then opens
// the face. The fragment never leaves the device except in the body of that one request.
const result = document.querySelector('#result');
const how = document.querySelector('#how');

function show(text, failed) {
  result.textContent = text;
  result.classList.toggle('failed', failed);
}

async function pair(code) {
  show('Pairing…', false);
  try {
    const response = await fetch('/api/pair', {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify({ code }),
      credentials: 'same-origin',
      cache: 'no-store',
    });
    const body = await response.json().catch(() => ({}));
    if (response.ok) {
      show(`Paired as “${body.name}”. Opening the watch…`, false);
      how.hidden = true;
      location.replace('/');
      return;
    }
    show(body.error ?? `Not paired (HTTP ${response.status}).`, true);
  } catch {
    show('The watch is not reachable.', true);
  }
}

const code = location.hash.slice(1);
if (code) {
  // The code is used up either way; it should not linger in the address bar or the history.
  history.replaceState(null, '', location.pathname);
  pair(code);
}
