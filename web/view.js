// Draws the watch from a WatchState: the three pages side by side, modal screens over them,
// the glance, the force-touch menu and the page dots. Updates touch only what a change batch
// names. User input leaves through `onEvent(event)`, in the host's JSON event format.
import { animationFrame, clockText, imageUrl } from './format.js';
import { createElement, sliderValueAt, tickTimer, update } from './objects.js';

// What a screen reader calls a screen: the layout's label for it, else its close control's title.
export function screenName(screen) {
  return screen?.accessibilityLabel || screen?.title || 'Screen';
}

export class WatchView {
  constructor(state, root, { onEvent }) {
    this.state = state;
    this.onEvent = onEvent;
    this.pages = root.querySelector('#pages');
    this.modals = root.querySelector('#modals');
    this.glance = root.querySelector('#glance');
    this.menu = root.querySelector('#menu');
    this.dots = root.querySelector('#dots');
    this.screenElements = new Map(); // screen id -> section
    this.elements = new Map(); // object id -> element
    this.animations = new Map(); // group element -> {animation, start}
    this.animationRequest = 0;
    this.screen = root.querySelector('#screen');
    this.#listen(this.screen);
    setInterval(() => this.#tickTimers(), 250);
  }

  // Draws everything anew (after a snapshot).
  renderAll() {
    // The watch's texts are in its language, whatever the page around them speaks.
    this.screen.lang = this.state.locale.language;
    for (const section of this.screenElements.values()) section.remove();
    this.screenElements.clear();
    this.elements.clear();
    this.animations.clear();
    for (const id of this.state.screens.keys()) this.#renderScreen(id);
    this.#renderNavigation();
    this.#renderMenu();
  }

  // Applies what WatchState.applyBatch() reported.
  applyChanges(changes) {
    for (const id of changes.removed) this.#dropScreen(id);
    for (const id of changes.added) this.#renderScreen(id);
    const touchedScreens = new Set();
    for (const id of changes.objects) {
      const object = this.state.object(id);
      const element = this.elements.get(id);
      if (!object) continue;
      touchedScreens.add(this.state.owners.get(id));
      if (object.kind === 'menu') continue;
      if (!element) continue; // Not drawn yet: its parent's record draws it.
      this.#sync(id, this.#parentFrame(element));
      this.#renameAncestorButton(element);
    }
    for (const id of touchedScreens) this.#sizeContent(id);
    if (changes.navigation || changes.added.length || changes.removed.length) this.#renderNavigation();
    this.#renderMenu();
  }

  // Pages dragged by `offset` pixels while a finger moves (0 when it lets go).
  dragPages(offset) {
    const page = this.state.navigation.currentPage;
    const width = this.state.size.width;
    this.pages.classList.toggle('dragging', offset !== 0);
    this.pages.style.transform = `translateX(${-page * width + offset}px)`;
  }

  #renderScreen(id) {
    const screen = this.state.screen(id);
    if (!screen) return;
    const section = document.createElement('section');
    section.className = `wk-screen role-${screen.role}`;
    section.dataset.screen = id;
    section.dataset.controller = screen.controller;
    section.setAttribute('aria-label', screenName(screen));
    const scroll = Object.assign(document.createElement('div'), { className: 'wk-scroll' });
    if (screen.role === 'modal') {
      const bar = Object.assign(document.createElement('div'), { className: 'wk-modal-bar' });
      const close = document.createElement('button');
      close.type = 'button';
      close.className = 'wk-close';
      close.dataset.close = 'modal';
      close.setAttribute('aria-label', `Close ${screenName(screen)}`);
      close.textContent = screen.title || 'Close';
      const time = Object.assign(document.createElement('span'), { className: 'wk-clock' });
      bar.append(close, time);
      scroll.append(bar);
    }
    const content = Object.assign(document.createElement('div'), { className: 'wk-content' });
    scroll.append(content);
    section.append(scroll);
    for (const rootId of screen.rootIds) content.append(this.#sync(rootId, null));
    const host = screen.role === 'page' ? this.pages : screen.role === 'modal' ? this.modals : this.glance;
    if (screen.role === 'page') {
      const index = this.state.navigation.pages.indexOf(id);
      section.style.left = `${Math.max(0, index) * this.state.size.width}px`;
    }
    host.append(section);
    this.screenElements.set(id, section);
    this.#sizeContent(id);
  }

  #dropScreen(id) {
    const section = this.screenElements.get(id);
    if (!section) return;
    for (const element of section.querySelectorAll('[data-id]')) {
      this.elements.delete(element.dataset.id);
      this.animations.delete(element);
    }
    this.screenElements.delete(id);
    if (section.classList.contains('role-modal') && section.classList.contains('shown')) {
      // Slides away, then goes.
      section.classList.add('leaving');
      section.classList.remove('shown');
      setTimeout(() => section.remove(), 260);
    } else {
      section.remove();
    }
  }

  #sizeContent(screenId) {
    const section = this.screenElements.get(screenId);
    if (!section) return;
    const height = this.state.contentHeight(screenId);
    section.querySelector('.wk-content').style.height = `${Math.max(height, 0)}px`;
  }

  // Makes or updates the element of object `id` and its children; returns it.
  #sync(id, parentFrame) {
    const object = this.state.object(id);
    let element = this.elements.get(id);
    if (!object) {
      element?.remove();
      this.elements.delete(id);
      return document.createComment(`missing ${id}`);
    }
    if (!element || element.dataset.kind !== object.kind) {
      const fresh = createElement(object);
      element?.replaceWith(fresh);
      element = fresh;
      this.elements.set(id, element);
    }
    const texts = object.kind === 'button' ? this.#labelTexts(object) : [];
    update(element, object, parentFrame, texts);
    if (object.kind === 'group') this.#syncAnimation(element, object);
    if (object.kind === 'table') this.#syncRows(element, object);
    else if (Array.isArray(object.children)) this.#syncChildren(element, object.children, object.frame);
    return element;
  }

  #syncChildren(container, childIds, frame) {
    const wanted = new Set(childIds);
    for (const child of [...container.children]) {
      if (child.dataset.id && !wanted.has(child.dataset.id)) child.remove();
    }
    let previous = container.classList.contains('wk-button') ? container.firstChild : null;
    for (const childId of childIds) {
      const element = this.#sync(childId, frame);
      const expected = previous ? previous.nextSibling : container.firstChild;
      if (element !== expected) container.insertBefore(element, expected);
      previous = element;
    }
  }

  #syncRows(tableElement, table) {
    const rowIds = table.rows.map((row) => row.groupId).filter(Boolean);
    this.#syncChildren(tableElement, rowIds, table.frame);
    table.rows.forEach((row, index) => {
      const element = row.groupId && this.elements.get(row.groupId);
      if (!element) return;
      element.classList.add('wk-row');
      element.dataset.table = table.id;
      element.dataset.row = String(index);
      element.dataset.rowType = row.rowType ?? '';
      if (row.selectable) {
        element.tabIndex = 0;
        element.setAttribute('role', 'button');
        element.setAttribute('aria-label', this.#rowName(row.groupId) || `Row ${index + 1}`);
        element.classList.add('selectable');
      } else {
        element.removeAttribute('tabindex');
        element.setAttribute('role', 'heading');
        element.setAttribute('aria-level', '3');
        element.classList.remove('selectable');
      }
    });
  }

  // The texts of the labels under object `object`, in order.
  #labelTexts(object) {
    const texts = [];
    const visit = (id) => {
      const child = this.state.object(id);
      if (!child || child.hidden) return;
      if (child.kind === 'label' && child.text) texts.push(child.text);
      for (const grandchild of child.children ?? []) visit(grandchild);
    };
    for (const id of object.children ?? []) visit(id);
    return texts;
  }

  #rowName(groupId) {
    return this.#labelTexts({ children: [groupId] }).join(', ');
  }

  // A label inside a button or a table row names it: keep that name current.
  #renameAncestorButton(element) {
    const button = element.parentElement?.closest('.wk-button, .wk-row');
    if (!button) return;
    const object = this.state.object(button.dataset.id);
    if (!object) return;
    if (button.classList.contains('wk-row')) {
      if (button.classList.contains('selectable')) button.setAttribute('aria-label', this.#rowName(object.id));
      return;
    }
    this.#sync(object.id, this.#parentFrame(button));
  }

  #parentFrame(element) {
    const parent = element.parentElement?.closest('[data-id]');
    return parent ? this.state.object(parent.dataset.id)?.frame ?? null : null;
  }

  #renderNavigation() {
    const nav = this.state.navigation;
    const width = this.state.size.width;
    nav.pages.forEach((id, index) => {
      const section = this.screenElements.get(id);
      if (section) section.style.left = `${index * width}px`;
    });
    this.dragPages(0);
    const modalOnTop = nav.modals.length > 0;
    for (const [id, section] of this.screenElements) {
      const visible = id === nav.visibleScreen;
      section.inert = !visible;
      section.classList.toggle('visible', visible);
      if (section.classList.contains('role-modal')) {
        const index = nav.modals.indexOf(id);
        const top = index === nav.modals.length - 1;
        if (top && !section.classList.contains('shown')) {
          // Let the browser draw it below first, so that it slides up.
          requestAnimationFrame(() => requestAnimationFrame(() => section.classList.add('shown')));
        }
        section.classList.toggle('covered', !top);
      }
    }
    this.glance.classList.toggle('shown', nav.glance.visible);
    this.pages.inert = modalOnTop || nav.glance.visible;
    this.#renderDots();
    document.dispatchEvent(new CustomEvent('watch:navigation', { detail: nav }));
  }

  #renderDots() {
    const nav = this.state.navigation;
    const show = nav.pages.length > 1 && nav.modals.length === 0 && !nav.glance.visible;
    this.dots.hidden = !show;
    while (this.dots.children.length > nav.pages.length) this.dots.lastChild.remove();
    nav.pages.forEach((id, index) => {
      let dot = this.dots.children[index];
      if (!dot) {
        dot = document.createElement('button');
        dot.type = 'button';
        dot.className = 'dot';
        dot.addEventListener('click', () => this.onEvent({ type: 'swipe', page: index }));
        this.dots.append(dot);
      }
      const current = index === nav.currentPage;
      const name = screenName(this.state.screen(id));
      dot.setAttribute('aria-label', `Page ${index + 1} of ${nav.pages.length}: ${name}`);
      if (current) dot.setAttribute('aria-current', 'page');
      else dot.removeAttribute('aria-current');
    });
  }

  #renderMenu() {
    const screen = this.state.visibleScreen();
    const menu = screen?.menuId ? this.state.object(screen.menuId) : null;
    const open = !!menu?.open && Array.isArray(menu.items) && menu.items.length > 0;
    const key = open ? JSON.stringify(menu.items) : '';
    if (!open) {
      if (!this.menu.hidden) {
        this.menu.hidden = true;
        this.menu.replaceChildren();
        this.menu.dataset.key = '';
        this.restoreFocus?.focus?.();
      }
      return;
    }
    if (this.menu.dataset.key === key && !this.menu.hidden) return;
    const wasHidden = this.menu.hidden;
    if (wasHidden) this.restoreFocus = document.activeElement;
    this.menu.dataset.key = key;
    const list = Object.assign(document.createElement('div'), { className: 'menu-items' });
    list.setAttribute('role', 'menu');
    list.setAttribute('aria-label', `${screenName(screen)} menu`);
    menu.items.forEach((item, index) => {
      const button = document.createElement('button');
      button.type = 'button';
      button.className = 'menu-item';
      button.setAttribute('role', 'menuitem');
      const icon = Object.assign(document.createElement('span'), { className: 'menu-icon' });
      const url = imageUrl(item.image);
      if (url) icon.style.backgroundImage = `url("${url}")`;
      const title = Object.assign(document.createElement('span'), { className: 'menu-title' });
      title.textContent = item.title ?? '';
      button.append(icon, title);
      button.setAttribute('aria-label', item.title || `Item ${index + 1}`);
      button.addEventListener('click', (event) => {
        event.stopPropagation();
        this.onEvent({ type: 'pickMenuItem', index });
      });
      list.append(button);
    });
    const cancel = document.createElement('button');
    cancel.type = 'button';
    cancel.className = 'menu-cancel';
    cancel.textContent = this.state.text('Cancel');
    cancel.setAttribute('aria-label', this.state.text('Close the menu'));
    cancel.addEventListener('click', (event) => {
      event.stopPropagation();
      this.onEvent({ type: 'closeMenu' });
    });
    this.menu.replaceChildren(list, cancel);
    this.menu.hidden = false;
    if (wasHidden) list.querySelector('button')?.focus();
  }

  #syncAnimation(element, group) {
    const animation = group.animation;
    const entry = this.animations.get(element);
    if (!animation?.running) {
      if (entry) {
        this.animations.delete(element);
        element.style.backgroundImage = element.dataset.background ?? '';
      }
      return;
    }
    // A new start (startCount grew) restarts from the first frame.
    if (entry && entry.startCount === animation.startCount) {
      entry.animation = animation;
      return;
    }
    for (const frame of animation.frames) new Image().src = imageUrl({ name: frame });
    this.animations.set(element, { animation, startCount: animation.startCount, start: performance.now(), shown: -2 });
    if (!this.animationRequest) this.animationRequest = requestAnimationFrame((t) => this.#animate(t));
  }

  #animate(now) {
    this.animationRequest = 0;
    for (const [element, entry] of this.animations) {
      if (!element.isConnected) {
        this.animations.delete(element);
        continue;
      }
      const index = animationFrame(entry.animation, (now - entry.start) / 1000);
      const frames = entry.animation.frames;
      const shown = index < 0 ? frames.length - 1 : index;
      if (shown !== entry.shown) {
        entry.shown = shown;
        element.style.backgroundImage = `url("${imageUrl({ name: frames[shown] })}")`;
      }
      if (index < 0) this.animations.delete(element);
    }
    if (this.animations.size) this.animationRequest = requestAnimationFrame((t) => this.#animate(t));
  }

  #tickTimers() {
    const now = Date.now() / 1000;
    for (const element of document.querySelectorAll('.wk-timer')) tickTimer(element, now);
    const clock = clockText(new Date(), this.state.locale.identifier);
    for (const element of document.querySelectorAll('.wk-clock')) element.textContent = clock;
  }

  // Input: taps, rows, switches and sliders by delegation on the face.
  #listen(screen) {
    screen.addEventListener('click', (event) => {
      if (screen.dataset.suppressClick === '1') {
        screen.dataset.suppressClick = '';
        event.preventDefault();
        event.stopPropagation();
        return;
      }
      const target = event.target.closest('[data-close], .wk-button, .wk-switch, .wk-row.selectable, .wk-slider');
      if (!target || target.closest('[inert]')) return;
      if (target.dataset.close === 'modal') return this.onEvent({ type: 'closeModal' });
      if (target.classList.contains('wk-slider')) return this.#slideTo(target, event);
      if (target.disabled) return;
      const id = target.dataset.id;
      if (target.classList.contains('wk-row')) {
        return this.onEvent({ type: 'selectRow', object: target.dataset.table, row: Number(target.dataset.row) });
      }
      if (target.classList.contains('wk-switch')) return this.onEvent({ type: 'flip', object: id });
      // A button that adjusts a slider has no action of its own: it steps the slider.
      const adjusts = this.state.object(id)?.adjusts;
      if (adjusts?.slider) return this.onEvent({ type: 'slide', object: adjusts.slider, step: adjusts.by });
      this.onEvent({ type: 'tap', object: id });
    });
    screen.addEventListener('keydown', (event) => {
      const target = event.target;
      if (target.classList?.contains('wk-row') && (event.key === 'Enter' || event.key === ' ')) {
        event.preventDefault();
        target.click();
      } else if (target.classList?.contains('wk-slider')) {
        const steps = { ArrowLeft: -1, ArrowDown: -1, '-': -1, ArrowRight: 1, ArrowUp: 1, '+': 1 };
        if (event.key in steps) {
          event.preventDefault();
          event.stopPropagation();
          this.onEvent({ type: 'slide', object: target.dataset.id, step: steps[event.key] });
        } else if (event.key === 'Home' || event.key === 'End') {
          event.preventDefault();
          event.stopPropagation();
          const object = this.state.object(target.dataset.id);
          this.onEvent({ type: 'slide', object: target.dataset.id, value: event.key === 'Home' ? object.minimum : object.maximum });
        }
      }
    });
  }

  #slideTo(element, event) {
    if (element.getAttribute('aria-disabled') === 'true') return;
    const box = element.getBoundingClientRect();
    const fraction = box.width > 0 ? (event.clientX - box.left) / box.width : 0;
    this.onEvent({ type: 'slide', object: element.dataset.id, value: sliderValueAt(element, fraction) });
  }
}
