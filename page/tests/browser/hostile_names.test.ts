import { describe, expect, test } from 'vitest';
import { hostileRounds } from '../hostile';
import { ask, eventually, isMissing, open, opened, reload, show, useBrowser } from './browser';
import { expectHarmless } from './harmless';

describe.skipIf(isMissing)('Hostile names', () => {
  useBrowser();

  test('of cameras and followers are nothing but text: in the report, the warning to two savers, and beside areas', async () => {
    let texts: string[] = [];
    let conflicting = false;
    const real = await ask(await opened('live'), 'get_all_parameters');
    const names = ['CamName', ...Array.from({ length: 10 }, (_, i) => `FO${i + 1}_Name`)];
    const nameOf = (tag: string) => texts[names.indexOf(tag) % texts.length];
    const page = await open({}, async (one) => {
      const context = one.context();
      await context.route('**/*action=get_all_parameters', (route) => {
        const body = names.reduce(
          (document, tag) =>
            document.replace(
              new RegExp(`<${tag}>[^<]*</${tag}>`),
              () => `<${tag}>${conflicting ? nameOf(tag) : 'as it was'}</${tag}>`,
            ),
          real,
        );
        return route.fulfill({ contentType: 'text/xml', body });
      });
      await context.route('**/*action=get_occupancy_csv', (route) => {
        const columns = texts.flatMap((text) => [
          `Entrance1_Entrances_Person_${text}`,
          `AOI1_Person_${text}`,
          `Occup_Person_${text}`,
        ]);
        return route.fulfill({
          contentType: 'text/csv',
          body: `Date,${columns.join(',')},Occup_Person_Other\n2026-03-31 10:00:00,${columns.map(() => 5)},8\n`,
        });
      });
    });
    for (const round of hostileRounds(names.length)) {
      texts = round;
      conflicting = false;
      await show(page, 'reports');
      await reload(page);
      const isAmong = (all: string[]) => [...texts, 'Other'].every((text) => all.includes(text));
      await eventually(() => page.getByTestId('report').locator('thead th').allTextContents(), isAmong);
      const camera = page.getByLabel('Camera', { exact: true });
      expect(await camera.locator('option').allTextContents()).toEqual(expect.arrayContaining(texts));
      expect(await page.locator('.chart .u-label').allTextContents()).toEqual(expect.arrayContaining(texts));
      await expectHarmless(page);
      for (const text of texts) {
        // Behind "All cameras" they stand in the order of their characters.
        await camera.selectOption({ index: 1 + [...texts, 'Other'].sort().indexOf(text) });
        await eventually(
          () => page.getByTestId('report').locator('thead th').last().textContent(),
          (name) => name === text,
        );
        await expectHarmless(page);
      }

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
        ].map((name, i) => `${name} is now “${nameOf(names[(i + 1) % names.length])}”, was “as it was”`),
      );
      await expectHarmless(page);
      await page.getByRole('dialog').getByRole('button', { name: 'Take theirs' }).click();
      for (const tag of names) expect(await page.locator(`input[name=${tag}]`).inputValue()).toBe(nameOf(tag));
      await expectHarmless(page);
      await page.evaluate(() => (location.hash = '#/areas'));
      await page.locator('svg.editor').waitFor();
      await expectHarmless(page);
    }
  });
});
