import { Store } from './model/store';

/* Light, dark, or as the device has it. */

export type Theme = 'auto' | 'light' | 'dark';

const kKey = 'senvo-theme';
const order: Theme[] = ['auto', 'light', 'dark'];

/** The chosen colours. Watchers are told whenever the colours that are seen may have changed. */
class ThemeStore extends Store {
  chosen: Theme = 'auto';

  /** Takes up what was chosen before, and follows the device from here on. */
  restore(): void {
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.changed());
    try {
      const kept = localStorage.getItem(kKey) as Theme;
      if (order.includes(kept)) this.chosen = kept;
    } catch {
      // A browser that keeps nothing shows the device's colours.
    }
    document.documentElement.dataset.theme = this.chosen;
  }

  next(): void {
    this.chosen = order[(order.indexOf(this.chosen) + 1) % order.length];
    document.documentElement.dataset.theme = this.chosen;
    try {
      localStorage.setItem(kKey, this.chosen);
    } catch {
      // It counts until the page is left, then.
    }
    this.changed();
  }

  /** Whether dark colours are seen. */
  get dark(): boolean {
    return this.chosen === 'dark' || (this.chosen === 'auto' && matchMedia('(prefers-color-scheme: dark)').matches);
  }
}

export const theme = new ThemeStore();
