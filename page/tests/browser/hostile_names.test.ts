import { describe, expect, test } from 'vitest';
import { hostileTexts } from '../hostile';
import { ask, eventually, isMissing, open, opened, show, useBrowser } from './browser';
import { expectHarmless } from './harmless';

describe.skipIf(isMissing)('Hostile names', () => {
  useBrowser();

  test('of cameras and followers are nothing but text: in the report, the warning to two savers, and beside areas', async () => {
    let current = '';
    let conflicting = false;
    const real = await ask(await opened('live'), 'get_all_parameters');
    const names = ['CamName', ...Array.from({ length: 10 }, (_, i) => `FO${i + 1}_Name`)];
    const page = await open({}, async (one) => {
      const context = one.context();
      await context.route('**/*action=get_all_parameters', (route) => {
        const value = conflicting ? current : 'as it was';
        const body = names.reduce(
          (document, tag) => document.replace(new RegExp(`<${tag}>[^<]*</${tag}>`), () => `<${tag}>${value}</${tag}>`),
          real,
        );
        return route.fulfill({ contentType: 'text/xml', body });
      });
      await context.route('**/*action=get_occupancy_csv', (route) =>
        route.fulfill({
          contentType: 'text/csv',
          body: `Date,Entrance1_Entrances_Person_${current},AOI1_Person_${current},Occup_Person_${current},Occup_Person_Other\n2026-03-31 10:00:00,5,6,7,8\n`,
        }),
      );
    });
    for (const text of hostileTexts) {
      current = text;
      conflicting = false;
      await show(page, 'reports');
      await page.reload();
      await eventually(
        () => page.getByTestId('report').locator('thead th').allTextContents(),
        (head) => head.includes(text) && head.includes('Other'),
      );
      expect(await page.getByLabel('Camera', { exact: true }).locator('option').allTextContents()).toContain(text);
      expect(await page.locator('.chart .u-label').allTextContents()).toContain(text);
      await page
        .getByLabel('Camera', { exact: true })
        .selectOption({ label: text })
        .catch(() => page.getByLabel('Camera', { exact: true }).selectOption({ index: 1 }));
      await expectHarmless(page);

      await page.evaluate(() => (location.hash = '#/cameras'));
      await page.locator('input[name=RepInt]').fill('9');
      conflicting = true;
      await page.getByRole('button', { name: 'Save', exact: true }).click();
      const lines = page.getByRole('dialog').locator('li');
      await lines.first().waitFor();
      expect(await lines.allTextContents()).toEqual(
        [
          'Follower 1: Name',
          ...Array.from({ length: 9 }, (_, i) => `Follower ${i + 2}: Name`),
          'Name of this camera',
        ].map((name) => `${name} is now “${text}”, was “as it was”`),
      );
      await expectHarmless(page);
      await page.getByRole('dialog').getByRole('button', { name: 'Take theirs' }).click();
      for (const tag of names) expect(await page.locator(`input[name=${tag}]`).inputValue()).toBe(text);
      await expectHarmless(page);
      await page.evaluate(() => (location.hash = '#/areas'));
      await page.locator('svg.editor').waitFor();
      await expectHarmless(page);
    }
  });
});
