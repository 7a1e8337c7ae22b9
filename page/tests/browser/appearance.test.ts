import { createRequire } from 'node:module';
import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { gzipSync } from 'node:zlib';
import { Page } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import { eventually, expectText, isMissing, opened, screenshots, show, tabs, useBrowser } from './browser';

const kAxe = createRequire(import.meta.url).resolve('axe-core/axe.min.js');
const kMostBytes = 150 * 1024;

interface Violation {
  id: string;
  nodes: { html: string; failureSummary: string }[];
}

async function violations(page: Page): Promise<string[]> {
  // By evaluation, which the page's policy does not apply to.
  await page.evaluate(readFileSync(kAxe, 'utf8'));
  const found = await page.evaluate(async () => {
    const axe = (window as unknown as { axe: { run: (options: object) => Promise<{ violations: Violation[] }> } }).axe;
    return (await axe.run({ runOnly: ['wcag2a', 'wcag2aa', 'wcag21a', 'wcag21aa', 'wcag22aa', 'best-practice'] })).violations;
  });
  return found.flatMap((violation) => violation.nodes.map((node) => `${violation.id}: ${node.html}\n${node.failureSummary}`));
}

const devices = { desktop: { width: 1360, height: 850 }, phone: { width: 390, height: 844 } };
const schemes = ['light', 'dark'] as const;
const looks = Object.keys(devices).flatMap((device) => schemes.map((scheme) => [device as keyof typeof devices, scheme] as const));

/** Opens what a tab has folded away, and waits for what it fetches. */
async function unfold(page: Page, tab: (typeof tabs)[number]): Promise<void> {
  if (tab === 'live') await eventually(() => page.getByTestId('occupancy').textContent(), (text) => text !== '–');
  if (tab === 'live' || tab === 'areas') await eventually(() => page.getByText('Fetching the picture').count(), (count) => count === 0);
  if (tab === 'cameras') await page.getByTestId('follower-3').getByRole('button', { name: 'Set up' }).click();
  if (tab === 'advanced') {
    await page.getByRole('button', { name: 'View Log' }).click();
    await page.getByTestId('log').locator('tr').nth(1).waitFor();
  }
  if (tab === 'reports') {
    await eventually(async () => {
      await page.getByRole('button', { name: 'Read again' }).click();
      return page.getByTestId('report').count();
    }, (count) => count === 1);
  }
}

describe.skipIf(isMissing)('Appearance', () => {
  useBrowser();

  test.each(looks)('every tab is clean and fits: %s, %s', async (device, scheme) => {
    const page = await opened('live', { viewport: devices[device], colorScheme: scheme, hasTouch: device === 'phone' });
    const found: string[] = [];
    for (const tab of tabs) {
      await show(page, tab);
      await unfold(page, tab);
      const wide = await page.evaluate(() => document.documentElement.scrollWidth - document.documentElement.clientWidth);
      if (wide > 0) found.push(`${tab} is ${wide} pixels too wide`);
      found.push(...(await violations(page)).map((violation) => `${tab}: ${violation}`));
      await page.screenshot({ path: join(screenshots, `${tab}-${device}-${scheme}.png`), fullPage: device === 'desktop' });
    }
    expect(found).toEqual([]);
  });

  test.each(schemes)('questions and unsaved changes are clean, too: %s', async (scheme) => {
    const page = await opened('live', { colorScheme: scheme });
    await page.getByRole('button', { name: 'Reset the building' }).click();
    const found = await violations(page);
    await page.screenshot({ path: join(screenshots, `question-${scheme}.png`) });
    await page.keyboard.press('Escape');
    await show(page, 'detection');
    await page.locator('input[name=Sensitivity]').fill('7');
    await expectText(page, 'save-state', /to correct first/);
    found.push(...(await violations(page)));
    await page.screenshot({ path: join(screenshots, `unsaved-${scheme}.png`) });
    expect(found).toEqual([]);
  });

  test('colours follow the device until they are chosen, and stay chosen', async () => {
    const page = await opened('live', { colorScheme: 'dark' });
    const ground = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    const dark = await ground();
    await page.getByRole('button', { name: 'Colours: as the device' }).click();
    const light = await ground();
    expect(light).not.toBe(dark);
    await page.reload();
    await page.getByRole('button', { name: 'Colours: light' }).waitFor();
    expect(await ground()).toBe(light);
    await page.getByRole('button', { name: 'Colours: light' }).click();
    expect(await ground()).toBe(dark);
  });

  test('each tab has an address and is reached by the keyboard alone', async () => {
    const page = await opened('live');
    await page.keyboard.press('Tab');
    await eventually(() => page.evaluate(() => document.activeElement!.textContent), (text) => text === 'Skip to the content');
    for (const tab of tabs) {
      await eventually(async () => {
        await page.keyboard.press('Tab');
        return page.evaluate(() => document.activeElement!.getAttribute('href'));
      }, (href) => href === `#/${tab}`);
      await page.keyboard.press('Enter');
      await page.getByRole('heading', { level: 1, name: new RegExp(tab, 'i') }).waitFor();
      expect(new URL(page.url()).hash).toBe(`#/${tab}`);
      expect(await page.getByRole('link', { name: new RegExp(`^${tab}$`, 'i') }).getAttribute('aria-current')).toBe('page');
    }
    await page.goBack();
    await page.getByRole('heading', { level: 1, name: 'Cameras' }).waitFor();
  });
});

test('the built page stays small', () => {
  const folder = join(__dirname, '../../../package/html');
  const files = readdirSync(folder).map((file) => [file, gzipSync(readFileSync(join(folder, file))).length] as const);
  const bytes = files.reduce((sum, [, size]) => sum + size, 0);
  console.log(`the built page: ${bytes} bytes compressed`);
  expect(files.map(([file]) => file)).toContain('index.html');
  expect(bytes).toBeLessThan(kMostBytes);
});
