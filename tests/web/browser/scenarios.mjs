// The watch face in a real browser against real vexo-watch and vexo-phone processes: what a
// person sees and does, step by step, with a screenshot of each step.
//
//   node scenarios.mjs --watch PATH --phone PATH --library PATH --web-root DIR --screenshots DIR
//
// Prints one line per scenario and "N passed, N failed"; exits 77 (skipped) with one line
// when Chromium, playwright-core or a program is missing.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { runChecklist } from './checklist.mjs';
import { Face, action, bannerIds, dismissBanners, escapeRegExp as escape, loadSong, outlet } from './face.mjs';
import { Skip, launchBrowser, parseArgs, run, startPrograms } from './harness.mjs';

const options = parseArgs(process.argv.slice(2));
const viewport = { width: 1280, height: 860 };

const deck = (n) => `turntable${n}`;

const scenarios = [
  ['the three pages appear', async ({ face }) => {
    const controllers = await face.page.$$eval('#pages > section', (s) => s.map((e) => e.dataset.controller));
    assert.deepEqual(controllers, ['turntable1', 'mixer', 'turntable2']);
    assert.equal(await face.page.locator('#dots .dot').count(), 3);
    for (const page of [0, 1, 2]) {
      await face.showPage(page);
      await face.shot(`page-${page + 1}`);
    }
    await face.showPage(0);
    assert.equal(await face.text(outlet(deck(1), 'nameLabel')), '--');
  }],

  ['library, playlist, row: the deck shows the song and its round artwork', async ({ face, state, programs }) => {
    programs.need('phone', 'library');
    state.song1 = await loadSong(face, 1);
    await face.waitForText(outlet(deck(1), 'nameLabel'), new RegExp(`^${escape(state.song1)}$`));
    await face.waitForImage(outlet(deck(1), 'artworkButton'), /^data:/);
    // The artwork is the round picture the watch drew: a 92-point square PNG.
    const size = await face.page.$eval(outlet(deck(1), 'artworkButton'), async (element) => {
      const image = window.vexoFace.state.object(element.dataset.id).backgroundImage;
      return [image.type, image.width, image.height];
    });
    assert.deepEqual(size, ['image/png', 92, 92]);
    await face.shot('deck1-loaded');
  }],

  ['play shows pause only after the phone says it plays', async ({ face, state, programs }) => {
    programs.need('phone', 'library');
    if (!state.song1) throw new Skip('no song was loaded');
    const play = outlet(deck(1), 'playButton');
    // A song loaded onto a stopped deck leaves the idle play image until "playing" is first
    // reported for it; either way it is a play image, never pause.
    await face.waitForImage(play, /^turntable-play(-active)?$/);
    const idle = await face.image(play);
    const sent = (await face.logRecords()).length;
    programs.phone.signal('SIGSTOP');
    try {
      await face.page.click(play);
      // The action left for the phone...
      await face.wait((n) => window.vexoFace.log.records.length > n &&
        window.vexoFace.log.records.some((r) => r.direction === 'toPhone' && JSON.stringify(r.contents).includes('"action":0')), sent);
      await face.page.waitForTimeout(300);
      // ...but the phone has not answered, so the button still says play.
      assert.equal(await face.image(play), idle);
      await face.shot('play-tapped-phone-silent');
    } finally {
      programs.phone.signal('SIGCONT');
    }
    await face.waitForImage(play, /^turntable-pause-active$/);
    await face.shot('playing');
  }],

  ['the glance shows the audible deck\'s song', async ({ face, state, programs }) => {
    programs.need('phone', 'library');
    if (!state.song1) throw new Skip('no song was loaded');
    await face.page.click('#glance-button');
    await face.wait(() => window.vexoFace.state.navigation.glance.visible);
    await face.waitForText(outlet('glance', 'nameLabel'), new RegExp(`^${escape(state.song1)}$`));
    await face.waitForImage(outlet('glance', 'artworkImage'), /^data:/);
    await face.shot('glance');
    await face.page.keyboard.press('Escape');
    await face.wait(() => !window.vexoFace.state.navigation.glance.visible);
    // Deck 1 stops again: a demonstration song lasts half a minute, and the phone's notices
    // of its end would come in the middle of the next steps.
    await face.showPage(0);
    const play = outlet(deck(1), 'playButton');
    await face.page.click(play);
    await face.waitForImage(play, /^turntable-play-active$/);
  }],

  ['the crossfader buttons move the crossfader in manual mode', async ({ face }) => {
    await face.showPage(1);
    const image = outlet('mixer', 'crossfaderImage');
    await face.waitForImage(image, /^mixer-crossfader-manual\d-f$/);
    await face.page.click(action('mixer', 'crossfadeLeft'));
    await face.waitForImage(image, /^mixer-crossfader-manual1-f$/);
    await face.page.click(action('mixer', 'crossfadeLeft'));
    await face.waitForImage(image, /^mixer-crossfader-manual0-f$/);
    await face.shot('crossfader-left');
    for (let i = 0; i < 4; i++) await face.page.click(action('mixer', 'crossfadeRight'));
    await face.waitForImage(image, /^mixer-crossfader-manual4-f$/);
    await face.page.click(action('mixer', 'crossfadeMiddle'));
    await face.waitForImage(image, /^mixer-crossfader-manual2-f$/);
    await face.shot('crossfader-middle');
  }],

  ['the volume buttons step the volume slider', async ({ face }) => {
    await face.showPage(1);
    const slider = outlet('mixer', 'volumeSlider');
    const button = (name) => `section[data-controller="mixer"] .wk-button[aria-label="${name}"]`;
    const reaches = (compare, target) => face.wait(([s, c, t]) => {
      const now = Number(document.querySelector(s)?.getAttribute('aria-valuenow'));
      return c === 'below' ? now < t - 1e-4 : Math.abs(now - t) < 1e-4;
    }, [slider, compare, target]);
    assert.equal(await face.page.getAttribute(slider, 'aria-label'), 'Volume');
    const start = Number(await face.page.getAttribute(slider, 'aria-valuenow'));
    await face.page.click(button('Volume down'));
    await reaches('below', start);
    await face.shot('volume-down');
    await face.page.click(button('Volume up'));
    await reaches('at', start);
  }],

  ['the transitions switch shows and hides the list', async ({ face, programs }) => {
    await face.showPage(1);
    await face.page.click('section[data-controller="mixer"] .wk-button[aria-label^="Transitions"]');
    await face.waitForVisible('transitions');
    const toggle = outlet('transitions', 'transitionModeSwitch');
    const duration = outlet('transitions', 'transitionDurationGroup');
    const rows = 'section[data-controller="transitions"] .wk-row';
    assert.equal(await face.page.getAttribute(toggle, 'aria-checked'), 'false');
    assert.equal(await face.page.locator(rows).count(), 0);
    assert.equal(await face.page.isHidden(duration), true);
    await face.shot('transitions-manual');
    await face.page.click(toggle);
    await face.wait((s) => document.querySelector(s)?.getAttribute('aria-checked') === 'true', toggle);
    await face.page.waitForSelector(duration, { state: 'visible' });
    // The names come from the phone's mixer status.
    if (programs.phone) await face.page.waitForSelector(`${rows}.selectable`);
    await face.shot('transitions-automatic');
    await face.page.click(toggle);
    await face.wait((s) => document.querySelectorAll(s).length === 0, rows);
    assert.equal(await face.page.isHidden(duration), true);
    // Automatic again for the next scenario, then back to the mixer with the close control.
    await face.page.click(toggle);
    await face.wait((s) => document.querySelector(s)?.getAttribute('aria-checked') === 'true', toggle);
    await face.page.click('section[data-controller="transitions"] .wk-close');
    await face.waitForVisible('mixer');
  }],

  ['the crossfader buttons send transitions in automatic mode', async ({ face, programs }) => {
    const image = outlet('mixer', 'crossfaderImage');
    await face.waitForImage(image, /^mixer-crossfader-auto\d-f$/);
    const before = (await face.logRecords())[0]?.sequence ?? 0;
    await face.page.click(action('mixer', 'crossfadeRight'));
    await face.wait((n) => window.vexoFace.log.records.some((r) => r.sequence > n && r.direction === 'toPhone' &&
      /"action":5\b/.test(JSON.stringify(r.contents))), before);
    // The phone runs the transition; the crossfader follows its status to deck 2.
    if (programs.phone) await face.waitForImage(image, /^mixer-crossfader-auto4-f$/);
    await face.shot('crossfader-automatic');
  }],

  ['automix through the menu changes the menu\'s title', async ({ face, programs }) => {
    programs.need('phone');
    await face.showPage(1);
    // Every mixer status fills the menu anew, and the watch closes an open menu when its
    // items are cleared: the transition of the step before must be over first.
    await face.waitForQuiet('mixerStatus', 1000, 30000);
    const menuTitle = '#menu .menu-title';
    await face.page.click(outlet('mixer', 'crossfaderImage'), { button: 'right' });
    await face.page.waitForSelector(menuTitle);
    assert.equal(await face.text(menuTitle), 'Automix Off');
    assert.equal(await face.text('#menu .menu-cancel'), 'Cancel');
    await face.shot('menu-automix-off');
    await face.page.click('#menu .menu-item');
    await face.page.waitForSelector('#menu', { state: 'hidden' });
    await face.wait(() => {
      const screen = window.vexoFace.state.visibleScreen();
      return window.vexoFace.state.object(screen.menuId)?.items?.[0]?.title === 'Automix On';
    });
    await face.page.keyboard.press('m');
    await face.page.waitForSelector(menuTitle);
    assert.equal(await face.text(menuTitle), 'Automix On');
    await face.shot('menu-automix-on');
    await face.page.keyboard.press('Escape');
    await face.page.waitForSelector('#menu', { state: 'hidden' });
  }],

  ['a load notification for deck 2 brings page 2 to the front', async ({ face, programs }) => {
    programs.need('phone');
    await dismissBanners(face);
    await face.showPage(1);
    const before = new Set(await bannerIds(face));
    await programs.notifyLoad(2);
    // The new banner, not one the phone sent of its own accord meanwhile.
    await face.wait((ids) => [...document.querySelectorAll('#banners .banner')].some((b) => !ids.includes(b.dataset.notification)), [...before]);
    const id = (await bannerIds(face)).find((b) => !before.has(b));
    const banner = `#banners .banner[data-notification="${id}"]`;
    await face.shot('notification');
    await face.page.click(`${banner} .banner-action[data-identifier="VXTUserNotificationActionLoad"]`);
    await face.waitForPage(2);
    await face.page.waitForSelector(banner, { state: 'detached' });
    await face.shot('notification-deck2');
  }],

  ['two tabs stay in sync', async ({ face, browser, programs }) => {
    const other = new Face(await browser.newPage({ viewport }), face.screenshots, face.counter);
    try {
      await other.open(programs.url);
      await face.showPage(0);
      await other.waitForPage(0);
      await other.page.keyboard.press('ArrowRight');
      await face.waitForPage(1);
      await other.page.keyboard.press('ArrowLeft');
      await face.waitForPage(0);
      if (programs.phone && !programs.missing.library) {
        // A tap in one tab: both show the phone's answer. The demonstration songs last half
        // a minute, so deck 1 gets its song afresh rather than one that may be ending.
        await loadSong(face, 1, 1);
        await other.waitForText(outlet(deck(1), 'nameLabel'), /^(?!--$)/);
        await face.showPage(0);
        await other.waitForPage(0);
        const play = outlet(deck(1), 'playButton');
        const before = await face.image(play);
        await other.page.click(play);
        const after = before.includes('pause') ? /^turntable-play-active$/ : /^turntable-pause-active$/;
        await face.waitForImage(play, after);
        await other.waitForImage(play, after);
        await face.shot('tab-one-tapped');
        // And back from the first tab, so that the deck is stopped again.
        await face.page.click(play);
        await other.waitForImage(play, /^turntable-play-active$/);
        await face.waitForImage(play, /^turntable-play-active$/);
      }
      await face.shot('tab-one');
      await other.shot('tab-two');
    } finally {
      await other.page.close();
    }
  }],

  ['play works from the keyboard alone', async ({ face, state, programs }) => {
    const page = face.page;
    if (programs.phone && !programs.missing.library && state.song1) await loadSong(face, 1, 4);
    await dismissBanners(face);
    await page.reload();
    await face.open(page.url());
    for (let i = 0; i < 3; i++) await page.keyboard.press('ArrowLeft');
    await face.waitForPage(0);
    let name = '';
    for (let i = 0; i < 80 && !/^(Play|Pause)$/.test(name); i++) {
      await page.keyboard.press('Tab');
      name = await page.evaluate(() => {
        const element = document.activeElement;
        return element?.closest('section[data-controller="turntable1"]') ? element.getAttribute('aria-label') ?? '' : '';
      });
    }
    assert.match(name, /^(Play|Pause)$/, 'Tab reaches the play button of deck 1');
    const play = outlet(deck(1), 'playButton');
    if (!programs.phone || programs.missing.library || !state.song1) {
      // No phone to answer: Enter sends the play action, and the button waits for the phone.
      const before = (await face.logRecords())[0]?.sequence ?? 0;
      await page.keyboard.press('Enter');
      await face.wait((n) => window.vexoFace.log.records.some((r) => r.sequence > n && r.direction === 'toPhone' &&
        /"action":0\b/.test(JSON.stringify(r.contents))), before);
      await face.shot('keyboard-enter');
      return;
    }
    const toggled = (image) => (image.includes('pause') ? /^turntable-play-active$/ : /^turntable-pause-active$/);
    let before = await face.image(play);
    await page.keyboard.press('Enter');
    await face.waitForImage(play, toggled(before));
    await face.shot('keyboard-enter');
    before = await face.image(play);
    await page.keyboard.press('Space');
    await face.waitForImage(play, toggled(before));
    await face.shot('keyboard-space');
  }],

  ['a German watch shows no English: the menu, the clock and the phone\'s notification', async ({ face, browser }) => {
    // A watch of its own in German (no phone: the menu and the clock need none), and the
    // phone's notification sent in German as a German phone sends it.
    const german = await startPrograms({ watch: options.watch, 'web-root': options['web-root'],
      watchArguments: ['--language', 'de', '--locale', 'de_DE'] });
    const page = await browser.newPage({ viewport, locale: 'en-US' });
    try {
      const other = new Face(page, face.screenshots, face.counter);
      await other.open(german.url);
      await other.showPage(1);
      await page.keyboard.press('m');
      await page.waitForSelector('#menu .menu-cancel');
      assert.equal(await other.text('#menu .menu-title'), 'Automix aus');
      assert.equal(await other.text('#menu .menu-cancel'), 'Abbrechen');
      assert.equal(await page.getAttribute('#menu .menu-cancel', 'aria-label'), 'Menü schließen');
      assert.equal(await page.getAttribute('#screen', 'lang'), 'de');
      await other.shot('german-menu');
      await page.keyboard.press('Escape');
      await page.waitForSelector('#menu', { state: 'hidden' });

      if (!options.phone) throw new Skip('vexo-phone is not built: no notification to check');
      const sent = spawnSync(options.phone, ['--language', 'de', 'notify', 'automix'],
        { env: german.env, encoding: 'utf8', timeout: 20000 });
      assert.match(sent.stdout, /^sent "Titel endet"/m, sent.stderr);
      await page.waitForSelector('#banners .banner .banner-title');
      assert.equal(await other.text('#banners .banner .banner-title'), 'Titel endet');
      assert.equal(await other.text('#banners .banner .banner-action'), 'Automix');
      await other.shot('german-notification');
      await dismissBanners(other);

      // The status bar's clock of a modal screen: 24 hours, as Germans write it, although
      // the browser speaks American English.
      await other.showPage(0);
      await page.click(action(deck(1), 'showLibrary'));
      await other.waitForVisible('library');
      await other.wait(() => /^\d\d:\d\d$/.test(document.querySelector('.wk-clock')?.textContent ?? ''));
      const shown = await page.$eval('#watch', (watch) => watch.innerText);
      for (const english of ['Cancel', 'Song ending', 'AM', 'PM']) assert.ok(!new RegExp(`\\b${english}\\b`).test(shown), `"${english}" is shown`);
      await other.shot('german-library');
    } finally {
      await page.close();
      await german.stop();
    }
  }],
];


run('web.browser', async () => {
  const browser = await launchBrowser();
  let programs;
  try {
    programs = await startPrograms(options);
    const page = await browser.newPage({ viewport });
    const errors = [];
    page.on('pageerror', (error) => errors.push(String(error)));
    const face = new Face(page, options.screenshots);
    await face.open(programs.url);
    const state = {};
    return await runChecklist(scenarios, {
      face, errors, context: { face, state, programs, browser }, programs, options, logs: ['watch', 'phone'],
    });
  } finally {
    await programs?.stop();
    await browser.close();
  }
});
