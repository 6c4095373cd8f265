// Pure helpers that turn snapshot values into what the page shows. No DOM here, so the
// unit tests run them under node.

// A snapshot colour {red, green, blue, alpha} (0 to 1) as CSS, or '' for none.
export function cssColor(color) {
  if (!color || typeof color !== 'object') return '';
  const channel = (v) => Math.round(Math.min(1, Math.max(0, Number(v) || 0)) * 255);
  const alpha = color.alpha === undefined ? 1 : Math.min(1, Math.max(0, Number(color.alpha) || 0));
  return `rgba(${channel(color.red)}, ${channel(color.green)}, ${channel(color.blue)}, ${alpha})`;
}

// The address of a snapshot image ({name} or {data: id}), or '' for none.
export function imageUrl(image) {
  if (!image || typeof image !== 'object') return '';
  if (typeof image.name === 'string' && image.name !== '') return `/assets/${encodeURIComponent(image.name)}`;
  if (typeof image.data === 'string' && image.data !== '') return `/api/images/${encodeURIComponent(image.data)}`;
  return '';
}

// The seconds a timer shows at `nowSeconds` (seconds since 1970): the distance from its
// date, frozen at the moment it stopped, and nothing when it never ran.
export function timerSeconds(timer, nowSeconds) {
  const date = Number(timer?.date);
  if (!Number.isFinite(date)) return 0;
  let end;
  if (timer.running) end = nowSeconds;
  else if (timer.stoppedAt !== null && timer.stoppedAt !== undefined) end = Number(timer.stoppedAt);
  else return 0;
  if (!Number.isFinite(end)) return 0;
  return Math.floor(Math.abs(end - date));
}

// Timer text in the units the layout asks for (["minute", "second"] by default): the
// largest unit carries what is left over, so 3725 s with minutes and seconds is "62:05".
export function formatTimer(seconds, units) {
  const wanted = Array.isArray(units) && units.length ? units : ['minute', 'second'];
  const sizes = [['hour', 3600], ['minute', 60], ['second', 1]].filter(([unit]) => wanted.includes(unit));
  if (sizes.length === 0) sizes.push(['minute', 60], ['second', 1]);
  let left = Math.max(0, Math.floor(seconds));
  return sizes.map(([, size], i) => {
    const value = Math.floor(left / size);
    left -= value * size;
    return i === 0 ? String(value) : String(value).padStart(2, '0');
  }).join(':');
}

// The animation frame to show `elapsed` seconds after its start, or -1 once a counted
// animation has finished (it then rests on its last frame). repeatCount 0 repeats forever.
export function animationFrame(animation, elapsed) {
  const count = Array.isArray(animation?.frames) ? animation.frames.length : 0;
  if (count === 0) return -1;
  const duration = Number(animation.duration) > 0 ? Number(animation.duration) : count / 30;
  const step = Math.floor(Math.max(0, elapsed) / (duration / count));
  const repeats = Number(animation.repeatCount) || 0;
  if (repeats > 0 && step >= repeats * count) return -1;
  return step % count;
}

// Font sizes of the watch's text styles, in face pixels.
const kFonts = {
  body: { size: 16, weight: 400 },
  headline: { size: 16, weight: 600 },
  subheadline: { size: 15, weight: 400 },
  footnote: { size: 13, weight: 400 },
  caption1: { size: 12, weight: 400 },
  caption2: { size: 11, weight: 400 },
  title3: { size: 19, weight: 400 },
};

export function fontFor(style) {
  return kFonts[style?.font] ?? kFonts.body;
}

// Protocol-log contents for reading: data, which the server writes by its length
// ({"$dataLength": n}, or {"$data": "<base64>"} as the wormhole tool writes it), becomes
// "<n bytes>"; a date ({"$date": seconds since 2001}) becomes its ISO text.
export function summarizeContents(value, depth = 0) {
  if (depth > 32) return '…';
  if (Array.isArray(value)) return value.map((v) => summarizeContents(v, depth + 1));
  if (value && typeof value === 'object') {
    const keys = Object.keys(value);
    if (keys.length === 1 && keys[0] === '$date' && typeof value.$date === 'number') {
      const date = new Date((value.$date + 978307200) * 1000);
      return Number.isNaN(date.getTime()) ? String(value.$date) : date.toISOString();
    }
    if (keys.length === 1 && (keys[0] === '$data' || keys[0] === '$dataLength')) {
      const v = value[keys[0]];
      if (typeof v === 'number') return `<${v} bytes>`;
      if (typeof v === 'string') return `<${base64Length(v)} bytes>`;
    }
    const out = {};
    for (const key of keys) out[key] = summarizeContents(value[key], depth + 1);
    return out;
  }
  return value;
}

export function base64Length(text) {
  const clean = text.replace(/[^A-Za-z0-9+/=_-]/g, '');
  const padding = clean.endsWith('==') ? 2 : clean.endsWith('=') ? 1 : 0;
  return Math.max(0, Math.floor((clean.length * 3) / 4) - padding);
}

// What a button says to a screen reader: the layout's accessibility label, followed by what
// its title and the labels inside it (`texts`, in order) show that the label does not say
// already ("Loop: 1/4"); its title and labels alone when the layout gives it no label.
export function buttonName(object, texts = []) {
  const title = typeof object.title === 'string' ? object.title.trim() : '';
  // Symbols ("«", "--") say nothing to a listener.
  const details = [title, ...texts].filter((t) => t && /[\p{L}\p{N}]/u.test(t));
  const base = typeof object.accessibilityLabel === 'string' ? object.accessibilityLabel : '';
  if (!base) return details.join(' ') || 'Button';
  // Words the label says already are not repeated ("Library 1" is "Library for deck 1").
  const known = new Set(base.toLocaleLowerCase().split(/\s+/));
  const extra = details.filter((t) => !t.toLocaleLowerCase().split(/\s+/).every((w) => known.has(w)));
  return extra.length ? `${base}: ${extra.join(' ')}` : base;
}

// The status bar's clock for `date`: hours and minutes as the locale `identifier` (a BCP 47
// tag, the watch's) writes them, "11:00" in German, "11:00 AM" in American English. The
// browser's own locale when there is no identifier or one that Intl does not know.
export function clockText(date, identifier) {
  const options = { hour: '2-digit', minute: '2-digit' };
  if (typeof identifier === 'string' && identifier !== '') {
    try {
      return date.toLocaleTimeString(identifier, options);
    } catch {
      // A malformed tag: fall through to the browser's locale.
    }
  }
  return date.toLocaleTimeString([], options);
}
