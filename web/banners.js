// Local notifications from the phone, shown as banners over the watch with their action
// buttons. The watch keeps them open until one of its pages acts on or dismisses them, so
// every tab shows the same banners.

const kMaximumBanners = 3;

export class Banners {
  constructor(container, { onEvent, onMessage }) {
    this.container = container;
    this.onEvent = onEvent;
    this.onMessage = onMessage;
    this.banners = new Map(); // notification id -> element
  }

  // The notifications open now (a page that connects starts with them).
  replaceAll(notifications) {
    for (const id of [...this.banners.keys()]) this.close(id);
    for (const notification of notifications) this.show(notification);
  }

  close(id) {
    const banner = this.banners.get(id);
    if (!banner) return;
    this.banners.delete(id);
    const focusWasInside = banner.contains(document.activeElement);
    banner.remove();
    this.#layout();
    if (focusWasInside) document.querySelector('#screen')?.focus();
  }

  // The oldest beyond the few that fit stay open on the watch, out of sight.
  #layout() {
    [...this.container.children].forEach((element, index) => { element.hidden = index >= kMaximumBanners; });
  }

  show(notification) {
    if (!notification || typeof notification !== 'object' || typeof notification.id !== 'string') return;
    if (this.banners.has(notification.id)) return;
    const id = notification.id;
    const banner = document.createElement('section');
    banner.className = 'banner';
    banner.dataset.notification = id;
    banner.setAttribute('role', 'alertdialog');
    const titleId = `banner-${Math.random().toString(36).slice(2)}`;
    banner.setAttribute('aria-labelledby', titleId);
    const head = Object.assign(document.createElement('div'), { className: 'banner-head' });
    const app = Object.assign(document.createElement('span'), { className: 'banner-app', textContent: 'VEXO' });
    const dismiss = document.createElement('button');
    dismiss.type = 'button';
    dismiss.className = 'banner-dismiss';
    dismiss.textContent = '×';
    dismiss.setAttribute('aria-label', 'Dismiss the notification');
    dismiss.addEventListener('click', async () => {
      const result = await this.onEvent({ type: 'dismissNotification', notification: id });
      // One that is gone already (another tab acted on it) goes here too.
      if (!result?.ok) this.close(id);
    });
    head.append(app, dismiss);
    const title = Object.assign(document.createElement('h2'), { className: 'banner-title', id: titleId });
    title.textContent = notification.alertTitle || 'Vexo';
    const body = Object.assign(document.createElement('p'), { className: 'banner-body' });
    body.textContent = notification.alertBody ?? '';
    const actions = Object.assign(document.createElement('div'), { className: 'banner-actions' });
    for (const action of Array.isArray(notification.actions) ? notification.actions : []) {
      if (!action || typeof action.identifier !== 'string') continue;
      const button = document.createElement('button');
      button.type = 'button';
      button.className = 'banner-action';
      button.dataset.identifier = action.identifier;
      button.textContent = action.title || action.identifier;
      button.addEventListener('click', async () => {
        for (const b of actions.querySelectorAll('button')) b.disabled = true;
        const result = await this.onEvent({ type: 'notificationAction', notification: id, identifier: action.identifier });
        if (result?.ok === false) {
          this.onMessage?.(`The watch refused “${button.textContent}”: ${result.error}`);
          for (const b of actions.querySelectorAll('button')) b.disabled = false;
        }
      });
      actions.append(button);
    }
    banner.append(head, title, body, actions);
    this.banners.set(id, banner);
    this.container.prepend(banner);
    this.#layout();
  }
}
