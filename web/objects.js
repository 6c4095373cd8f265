// How each kind of interface object looks in the page: one element per object, made once
// and updated in place, so that focus and running animations survive updates.
import { buttonName, cssColor, fontFor, formatTimer, imageUrl, timerSeconds } from './format.js';

const kSelection = { red: 0.918, green: 0.545, blue: 0.145, alpha: 1 };

export function createElement(object) {
  let element;
  switch (object.kind) {
    case 'button':
      element = document.createElement('button');
      element.type = 'button';
      element.append(Object.assign(document.createElement('span'), { className: 'wk-title' }));
      break;
    case 'label':
      element = document.createElement('div');
      element.append(document.createElement('span'));
      break;
    case 'image':
      element = document.createElement('img');
      element.alt = '';
      element.draggable = false;
      break;
    case 'slider':
      element = document.createElement('div');
      element.tabIndex = 0;
      element.setAttribute('role', 'slider');
      element.append(Object.assign(document.createElement('div'), { className: 'wk-segments' }));
      break;
    case 'switch': {
      element = document.createElement('button');
      element.type = 'button';
      element.setAttribute('role', 'switch');
      const title = Object.assign(document.createElement('span'), { className: 'wk-title' });
      const track = Object.assign(document.createElement('span'), { className: 'wk-track' });
      track.append(Object.assign(document.createElement('span'), { className: 'wk-knob' }));
      element.append(title, track);
      break;
    }
    case 'timer':
      element = document.createElement('div');
      element.setAttribute('role', 'timer');
      element.append(document.createElement('span'));
      break;
    default:
      element = document.createElement('div');
      break;
  }
  element.classList.add('wk', `wk-${object.kind}`);
  element.dataset.id = object.id;
  element.dataset.kind = object.kind;
  if (object.outlet) element.dataset.outlet = object.outlet;
  if (object.action) element.dataset.action = object.action;
  return element;
}

// Positions `element` at its frame, relative to its parent's frame.
export function place(element, object, parentFrame) {
  const frame = object.frame;
  if (!frame) return;
  const x = frame.x - (parentFrame?.x ?? 0);
  const y = frame.y - (parentFrame?.y ?? 0);
  const style = element.style;
  style.left = `${x}px`;
  style.top = `${y}px`;
  style.width = `${frame.width}px`;
  style.height = `${frame.height}px`;
}

function applyStyle(element, object) {
  const style = object.style ?? {};
  element.style.borderRadius = style.cornerRadius ? `${style.cornerRadius}px` : '';
  // A rounded group clips what it holds, as the watch does.
  if (object.kind === 'group') element.style.overflow = style.cornerRadius ? 'hidden' : '';
  const font = fontFor(style);
  element.style.fontSize = `${font.size}px`;
  element.style.fontWeight = String(font.weight);
  element.style.textAlign = style.textAlignment ?? '';
  element.dataset.align = style.textAlignment ?? '';
}

// What an object shows, for tests and styles: the asset name, or "data:<id>" for image data.
function imageTag(image) {
  if (image?.name) return image.name.replace(/\.png$/, '');
  if (image?.data) return `data:${image.data}`;
  return '';
}

function setBackgroundImage(element, image) {
  const url = imageUrl(image);
  const value = url ? `url("${url}")` : '';
  if (element.dataset.background !== value) {
    element.dataset.background = value;
    element.style.backgroundImage = value;
  }
}

// Updates `element` to show `object`. `texts` gives the label texts inside a button, for its
// accessible name.
export function update(element, object, parentFrame, texts = []) {
  place(element, object, parentFrame);
  element.hidden = !!object.hidden;
  applyStyle(element, object);
  switch (object.kind) {
    case 'group':
      setBackgroundImage(element, object.backgroundImage);
      element.style.backgroundColor = cssColor(object.backgroundColor);
      break;
    case 'button': {
      setBackgroundImage(element, object.backgroundImage);
      element.style.backgroundColor = cssColor(object.backgroundColor);
      element.firstChild.textContent = object.title ?? '';
      element.disabled = object.enabled === false;
      element.setAttribute('aria-label', buttonName(object, texts));
      element.dataset.image = imageTag(object.backgroundImage);
      break;
    }
    case 'label':
      element.firstChild.textContent = object.text ?? '';
      element.style.color = cssColor(object.textColor) || '#fff';
      break;
    case 'image': {
      const url = imageUrl(object.image);
      if (url) {
        if (element.getAttribute('src') !== url) element.src = url;
        element.style.visibility = '';
      } else {
        element.removeAttribute('src');
        element.style.visibility = 'hidden';
      }
      element.alt = object.accessibilityLabel ?? '';
      element.dataset.image = imageTag(object.image);
      break;
    }
    case 'slider':
      updateSlider(element, object);
      break;
    case 'switch': {
      element.firstChild.textContent = object.title ?? '';
      element.setAttribute('aria-checked', object.on ? 'true' : 'false');
      element.setAttribute('aria-label', object.accessibilityLabel || object.title || 'Switch');
      element.disabled = object.enabled === false;
      element.style.setProperty('--on-color', cssColor(object.color ?? kSelection) || cssColor(kSelection));
      break;
    }
    case 'timer':
      element.wkTimer = { date: object.date, running: object.running, stoppedAt: object.stoppedAt, units: object.style?.units };
      tickTimer(element, Date.now() / 1000);
      break;
    default:
      break;
  }
}

function updateSlider(element, object) {
  const minimum = Number(object.minimum ?? 0);
  const maximum = Number(object.maximum ?? 1);
  const steps = Math.max(1, Math.min(40, Math.round(Number(object.steps) || 10)));
  const value = Number.isFinite(object.value) ? object.value : minimum;
  const span = maximum - minimum || 1;
  const filled = Math.round(((value - minimum) / span) * steps);
  element.setAttribute('aria-valuemin', String(minimum));
  element.setAttribute('aria-valuemax', String(maximum));
  element.setAttribute('aria-valuenow', String(value));
  element.setAttribute('aria-valuetext', `${Math.round(((value - minimum) / span) * 100)}%`);
  element.setAttribute('aria-label', object.accessibilityLabel || 'Slider');
  element.setAttribute('aria-disabled', object.enabled === false ? 'true' : 'false');
  element.style.setProperty('--fill-color', cssColor(object.color ?? kSelection) || cssColor(kSelection));
  const segments = element.firstChild;
  while (segments.children.length < steps) segments.append(document.createElement('span'));
  while (segments.children.length > steps) segments.lastChild.remove();
  [...segments.children].forEach((segment, i) => segment.classList.toggle('on', i < filled));
  element.wkSlider = { minimum, maximum, steps };
}

// The slider value for a click at `fraction` (0 to 1) of its width: the end of the segment
// clicked.
export function sliderValueAt(element, fraction) {
  const { minimum, maximum, steps } = element.wkSlider ?? { minimum: 0, maximum: 1, steps: 10 };
  const segment = Math.min(steps, Math.max(0, Math.ceil(fraction * steps)));
  return minimum + ((maximum - minimum) * segment) / steps;
}

export function tickTimer(element, nowSeconds) {
  const timer = element.wkTimer;
  if (!timer) return;
  const text = formatTimer(timerSeconds(timer, nowSeconds), timer.units);
  if (element.firstChild.textContent !== text) element.firstChild.textContent = text;
}
