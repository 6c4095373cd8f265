// The page's copy of what the watch shows: the snapshot, kept current by change batches.
// Objects are kept flat by identifier, each holding its children as identifiers, so that a
// change record (which names children by identifier) replaces one entry.

export class WatchState {
  constructor() {
    this.clear();
  }

  clear() {
    this.revision = -1;
    this.size = { width: 312, height: 390 };
    this.navigation = {
      started: false, currentPage: 0, visibleScreen: null, pages: [], modals: [],
      glance: { visible: false, screen: null }, active: null,
    };
    this.screens = new Map(); // id -> screen without its objects, plus rootIds and menuId
    this.objects = new Map(); // id -> object, children as ids, a table's rows with groupId
    this.owners = new Map(); // object id -> screen id
    // The watch's language, locale (a BCP 47 tag; '' for the browser's) and the texts the
    // page draws itself, by their English text.
    this.locale = { language: 'en', identifier: '', texts: {} };
    this.loaded = false;
  }

  // The watch's text for the English `text`; `text` itself when the watch sent none.
  text(text) {
    const localized = this.locale.texts[text];
    return typeof localized === 'string' && localized !== '' ? localized : text;
  }

  // Replaces everything with `snapshot`. Returns false (and keeps the old state) when it is
  // no snapshot.
  applySnapshot(snapshot) {
    if (!snapshot || typeof snapshot !== 'object' || !Array.isArray(snapshot.pages)) return false;
    this.clear();
    this.loaded = true;
    this.revision = Number.isInteger(snapshot.revision) ? snapshot.revision : 0;
    if (snapshot.screen) this.size = { width: snapshot.screen.width || 312, height: snapshot.screen.height || 390 };
    const locale = snapshot.locale;
    if (locale && typeof locale === 'object') {
      this.locale = {
        language: typeof locale.language === 'string' && locale.language ? locale.language : 'en',
        identifier: typeof locale.identifier === 'string' ? locale.identifier : '',
        texts: locale.texts && typeof locale.texts === 'object' ? locale.texts : {},
      };
    }
    const glance = snapshot.glance ?? {};
    const allScreens = [...snapshot.pages, ...(snapshot.modals ?? []), ...(glance.screen ? [glance.screen] : [])];
    for (const screen of allScreens) this.#addScreen(screen);
    this.navigation = {
      started: !!snapshot.started,
      currentPage: snapshot.currentPage ?? 0,
      visibleScreen: snapshot.visibleScreen ?? null,
      pages: snapshot.pages.map((s) => s.id),
      modals: (snapshot.modals ?? []).map((s) => s.id),
      glance: { visible: !!glance.visible, screen: glance.screen ? glance.screen.id : null },
      active: allScreens.find((s) => s.active)?.id ?? null,
    };
    return true;
  }

  // Applies one change batch. Returns what changed, for the view:
  //   {stale: true}            a batch the state has already seen (ignored);
  //   {gap: true}              batches were missed: take a new snapshot;
  //   {navigation, added, removed, objects: [ids]} otherwise.
  applyBatch(batch) {
    const revision = batch?.revision;
    if (!Number.isInteger(revision) || !Array.isArray(batch.changes)) return { stale: true };
    if (!this.loaded || revision <= this.revision) return { stale: true };
    if (revision !== this.revision + 1) return { gap: true };
    this.revision = revision;
    const result = { navigation: false, added: [], removed: [], objects: [] };
    for (const record of batch.changes) {
      switch (record?.change) {
        case 'navigation':
          this.navigation = {
            started: !!record.started,
            currentPage: record.currentPage ?? 0,
            visibleScreen: record.visibleScreen ?? null,
            pages: record.pages ?? [],
            modals: record.modals ?? [],
            glance: { visible: !!record.glance?.visible, screen: record.glance?.screen ?? null },
            active: record.active ?? null,
          };
          for (const screen of this.screens.values()) screen.active = screen.id === this.navigation.active;
          result.navigation = true;
          break;
        case 'screenRemoved':
          this.#removeScreen(record.screen);
          result.removed.push(record.screen);
          break;
        case 'screenAdded':
          if (record.screen?.id) {
            this.#removeScreen(record.screen.id);
            this.#addScreen(record.screen);
            result.added.push(record.screen.id);
          }
          break;
        case 'object':
          if (record.object?.id && this.screens.has(record.screen)) {
            this.#putObject(record.object, record.screen);
            result.objects.push(record.object.id);
          }
          break;
        default:
          break; // Kinds of record this page does not know are skipped.
      }
    }
    return result;
  }

  object(id) {
    return this.objects.get(id);
  }

  screen(id) {
    return this.screens.get(id);
  }

  // The screen the user sees, or undefined.
  visibleScreen() {
    return this.screens.get(this.navigation.visibleScreen);
  }

  // The lowest edge of the shown objects of a screen, which may have grown past the
  // screen's contentHeight since it was sent (a table filled later).
  contentHeight(screenId) {
    const screen = this.screens.get(screenId);
    if (!screen) return this.size.height;
    let bottom = Number(screen.contentHeight) || 0;
    const visit = (id) => {
      const object = this.objects.get(id);
      if (!object || object.hidden) return;
      if (object.frame) bottom = Math.max(bottom, object.frame.y + object.frame.height);
      for (const child of object.children ?? []) visit(child);
      for (const row of object.rows ?? []) visit(row.groupId);
    };
    for (const id of screen.rootIds) visit(id);
    return bottom;
  }

  #addScreen(screen) {
    const { objects, menu, ...rest } = screen;
    const entry = { ...rest, rootIds: [], menuId: null };
    this.screens.set(screen.id, entry);
    for (const object of objects ?? []) {
      this.#putObject(object, screen.id);
      entry.rootIds.push(object.id);
    }
    if (menu?.id) {
      this.#putObject(menu, screen.id);
      entry.menuId = menu.id;
    }
  }

  #removeScreen(screenId) {
    if (!this.screens.delete(screenId)) return;
    for (const [id, owner] of [...this.owners]) {
      if (owner === screenId) {
        this.owners.delete(id);
        this.objects.delete(id);
      }
    }
  }

  // Stores `object` (its children either whole or by id) and returns its id.
  #putObject(object, screenId) {
    const entry = { ...object };
    const previous = this.objects.get(object.id);
    if (Array.isArray(object.children)) {
      entry.children = object.children.map((child) => {
        if (typeof child === 'string') return child;
        return this.#putObject(child, screenId);
      });
    }
    if (Array.isArray(object.rows)) {
      const kept = new Set();
      entry.rows = object.rows.map((row) => {
        const groupId = row.group ? this.#putObject(row.group, screenId) : null;
        if (groupId) kept.add(groupId);
        return { rowType: row.rowType, selectable: row.selectable !== false, groupId };
      });
      // Row groups that are gone take their objects with them.
      for (const row of previous?.rows ?? []) {
        if (row.groupId && !kept.has(row.groupId)) this.#dropObject(row.groupId);
      }
    }
    this.objects.set(object.id, entry);
    this.owners.set(object.id, screenId);
    return object.id;
  }

  #dropObject(id) {
    const object = this.objects.get(id);
    if (!object) return;
    this.objects.delete(id);
    this.owners.delete(id);
    for (const child of object.children ?? []) this.#dropObject(child);
    for (const row of object.rows ?? []) if (row.groupId) this.#dropObject(row.groupId);
  }
}
