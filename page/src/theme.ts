/* Light, dark, or as the device has it. */

export type Theme = 'auto' | 'light' | 'dark';

const kKey = 'senvo-theme';
const order: Theme[] = ['auto', 'light', 'dark'];

export function currentTheme(): Theme {
  const set = document.documentElement.dataset.theme as Theme | undefined;
  return set && order.includes(set) ? set : 'auto';
}

export function restoreTheme(): void {
  try {
    document.documentElement.dataset.theme = localStorage.getItem(kKey) ?? 'auto';
  } catch {
    // A browser that keeps nothing shows the device's colours.
  }
}

export function nextTheme(): Theme {
  const next = order[(order.indexOf(currentTheme()) + 1) % order.length];
  document.documentElement.dataset.theme = next;
  try {
    localStorage.setItem(kKey, next);
  } catch {
    // It counts until the page is left, then.
  }
  return next;
}
