import { Page } from 'playwright-core';
import { expect } from 'vitest';

/** What a text that became markup would have left behind. */
export async function expectHarmless(page: Page): Promise<void> {
  const found = await page.evaluate(() => ({
    hacked: 'hacked' in window,
    elements: [
      ...document.querySelectorAll(
        'script:not([src]), iframe, base, template, meta[http-equiv], main img[src=x], main form[action], [onload], [onerror]',
      ),
    ].map((element) => element.outerHTML),
    scripts: document.querySelectorAll('script').length,
  }));
  expect(found).toEqual({ hacked: false, elements: [], scripts: 1 });
}
