// What the browser tests and the benchmark do on the face: find interface objects by their
// screen and outlet, wait for what the watch shows, and save screenshots.
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';

const kWait = 20000;

// The selector of the object with `outlet` on the screen of controller `controller`.
export function outlet(controller, name) {
  return `section.wk-screen[data-controller="${controller}"] [data-outlet="${name}"]`;
}

export function action(controller, name) {
  return `section.wk-screen[data-controller="${controller}"] .wk-button[data-id][data-action="${name}"]`;
}

export class Face {
  // Faces that share `counter` number their screenshots in one sequence.
  constructor(page, screenshots, counter = { value: 0 }) {
    this.page = page;
    this.screenshots = screenshots;
    this.counter = counter;
    mkdirSync(screenshots, { recursive: true });
  }

  async open(url) {
    await this.page.goto(url);
    await this.page.waitForFunction(() => window.vexoFace?.state.loaded && document.body.dataset.connection === 'open', null, { timeout: kWait });
  }

  // Saves a screenshot named after the step; returns its file name.
  async shot(name) {
    this.counter.value += 1;
    const file = `${String(this.counter.value).padStart(2, '0')}-${name}.png`;
    // Slides and fades end first, so that the picture shows where things come to rest.
    await this.page.evaluate(() => Promise.race([
      Promise.all(document.getAnimations()
        .filter((a) => a.effect?.getComputedTiming().endTime !== Infinity)
        .map((a) => a.finished.catch(() => {}))),
      new Promise((resolve) => setTimeout(resolve, 1000)),
    ]));
    await this.page.screenshot({ path: join(this.screenshots, file) });
    return file;
  }

  // Resolves once `predicate(arg)` holds in the page.
  wait(predicate, arg, timeout = kWait) {
    return this.page.waitForFunction(predicate, arg, { timeout });
  }

  // The asset name an object shows (a button's background image, an image's image).
  image(selector) {
    return this.page.$eval(selector, (element) => element.dataset.image ?? '');
  }

  waitForImage(selector, pattern) {
    return this.wait(([s, source]) => new RegExp(source).test(document.querySelector(s)?.dataset.image ?? ''), [selector, pattern.source]);
  }

  text(selector) {
    return this.page.$eval(selector, (element) => element.textContent.trim());
  }

  waitForText(selector, pattern) {
    return this.wait(([s, source]) => new RegExp(source).test(document.querySelector(s)?.textContent.trim() ?? ''), [selector, pattern.source]);
  }

  // The watch's navigation as the page holds it.
  navigation() {
    return this.page.evaluate(() => window.vexoFace.state.navigation);
  }

  async waitForPage(index) {
    await this.wait((i) => window.vexoFace.state.navigation.currentPage === i && !document.querySelector('#pages.dragging'), index);
    // Let the pages finish sliding, so that a click lands where it aims.
    await this.page.waitForTimeout(350);
  }

  async showPage(index) {
    const nav = await this.navigation();
    if (nav.currentPage !== index) await this.page.click(`#dots .dot:nth-child(${index + 1})`);
    await this.waitForPage(index);
  }

  // The visible screen's controller name.
  visibleController() {
    return this.page.evaluate(() => window.vexoFace.state.visibleScreen()?.controller ?? null);
  }

  waitForVisible(controller) {
    return this.wait((c) => window.vexoFace.state.visibleScreen()?.controller === c, controller);
  }

  // Sends one event as the page does, resolving with its result.
  send(event) {
    return this.page.evaluate((e) => window.vexoFace.connection.send(e), event);
  }

  // Resolves once no message `identifier` has come for `quiet` ms (a transition the phone
  // runs sends its status many times a second).
  waitForQuiet(identifier, quiet = 1000, timeout = kWait) {
    return this.wait(([id, ms]) => {
      const newest = window.vexoFace.log.records.find((r) => r.identifier === id);
      return !newest || Date.now() - Number(newest.time) >= ms;
    }, [identifier, quiet], timeout);
  }

  // The protocol-log records the page holds, newest first.
  logRecords() {
    return this.page.evaluate(() => window.vexoFace.log.records);
  }
}

export function escapeRegExp(text) {
  return text.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
}

// The ids of the notification banners on the face, newest first.
export function bannerIds(face) {
  return face.page.$$eval('#banners .banner', (banners) => banners.map((b) => b.dataset.notification));
}

// Dismisses every open banner as a person does, with its close button. The phone sends
// notifications of its own (a song nearing its end, a deck that stopped), and a banner
// covers the top of the watch.
export async function dismissBanners(face) {
  for (let i = 0; i < 40; i++) {
    const dismiss = face.page.locator('#banners .banner:not([hidden]) .banner-dismiss').first();
    if (await dismiss.count() === 0) break;
    const id = await dismiss.evaluate((button) => button.closest('.banner').dataset.notification);
    await dismiss.click();
    await face.page.waitForSelector(`#banners .banner[data-notification="${id}"]`, { state: 'detached' });
  }
}

const rowSelector = (controller) => `section.wk-screen[data-controller="${controller}"] .wk-row.selectable`;

// Loads song `songIndex` of the first playlist onto deck `n` through its page's library, as a
// person does; gives the song's name.
export async function loadSong(face, n, songIndex = 0) {
  const controller = `turntable${n}`;
  await dismissBanners(face);
  await face.showPage(n === 1 ? 0 : 2);
  await face.page.click(action(controller, 'showLibrary'));
  await face.waitForVisible('library');
  await face.page.waitForSelector(rowSelector('library'));
  await face.shot(`deck${n}-library`);
  await face.page.click(`${rowSelector('library')} >> nth=0`);
  await face.waitForVisible('itunesPlaylist');
  await face.page.waitForSelector(rowSelector('itunesPlaylist'));
  await face.shot(`deck${n}-playlist`);
  const row = face.page.locator(rowSelector('itunesPlaylist')).nth(songIndex);
  const name = (await row.locator('[data-outlet="nameLabel"]').textContent()).trim();
  await row.click();
  await face.wait(() => window.vexoFace.state.navigation.modals.length === 0);
  await face.waitForText(outlet(controller, 'nameLabel'), new RegExp(`^${escapeRegExp(name)}$`));
  return name;
}
