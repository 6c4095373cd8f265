// Local notifications from the phone, shown as banners over the watch with their action
// buttons. Choosing an action hands it to the watch with the notification's user info.

const kMaximumBanners = 3;

export class Banners {
  constructor(container, { onEvent, onMessage }) {
    this.container = container;
    this.onEvent = onEvent;
    this.onMessage = onMessage;
    this.seen = new Set();
  }

  show(notification) {
    if (!notification || typeof notification !== 'object') return;
    // A notification sent again after a reconnection is shown once.
    const key = notification.id ?? notification.sequence;
    if (key !== undefined) {
      if (this.seen.has(key)) return;
      this.seen.add(key);
    }
    const banner = document.createElement('section');
    banner.className = 'banner';
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
    dismiss.addEventListener('click', () => this.#remove(banner));
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
        const result = await this.onEvent({
          type: 'notificationAction',
          identifier: action.identifier,
          userInfo: notification.userInfo && typeof notification.userInfo === 'object' ? notification.userInfo : {},
        });
        if (result?.ok === false) {
          this.onMessage?.(`The watch refused “${button.textContent}”: ${result.error}`);
          for (const b of actions.querySelectorAll('button')) b.disabled = false;
          return;
        }
        this.#remove(banner);
      });
      actions.append(button);
    }
    banner.append(head, title, body, actions);
    this.container.prepend(banner);
    while (this.container.children.length > kMaximumBanners) this.container.lastElementChild.remove();
  }

  #remove(banner) {
    const focusWasInside = banner.contains(document.activeElement);
    banner.remove();
    if (focusWasInside) document.querySelector('#screen')?.focus();
  }
}
