import { Page } from 'playwright-core';
import { describe, expect, test } from 'vitest';
import { hostileTexts } from '../hostile';
import { ask, eventually, isMissing, open, opened, post, show, store, stored, tabs, useBrowser } from './browser';

/** What a text that became markup would have left behind. */
async function expectHarmless(page: Page): Promise<void> {
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

/** As a browser shows a text with spaces and marks of direction. */
const shown = (text: string) => text.replace(/\s+/g, ' ').trim();

describe.skipIf(isMissing)('Hostile texts', () => {
  useBrowser();

  test('in every field that the camera shows are nothing but text', async () => {
    let current = '';
    const settings = await ask(await opened('live'), 'get_all_parameters');
    const page = await open({}, async (one) => {
      const context = one.context();
      const numbers = Array.from({ length: 11 }, (_, i) => i);
      await context.route('**/*action=get_data_panel_info', (route) =>
        route.fulfill({
          contentType: 'text/xml',
          body: `<app><TotalOcc>${current}</TotalOcc>${numbers.map((i) => `<NameCam_${i}>${current}</NameCam_${i}>`).join('')}${numbers
            .map(
              (i) =>
                `<AOICam_${i}>${current}</AOICam_${i}><ActiveCam_${i}>1</ActiveCam_${i}><StatusCam_${i}>${current}</StatusCam_${i}>`,
            )
            .join('')}</app>`,
        }),
      );
      for (const action of [
        'get_occupancy_count',
        'get_total_crowd',
        'get_execution_time',
        'get_analysis_resolution',
      ]) {
        await context.route(`**/*action=${action}`, (route) =>
          route.fulfill({ contentType: 'text/plain', body: current }),
        );
      }
      await context.route('**/*action=get_occupancy_csv', (route) =>
        route.fulfill({ contentType: 'text/csv', body: `Date,Occup_Person_${current}\n2026-03-31 10:00:00,5\n` }),
      );
      await context.route('**/*action=get_newest_log', (route) =>
        route.fulfill({
          contentType: 'text/plain',
          body: `${current}\n2026-03-31 10:00:00|ostrel_senvo|error|${current}\n`,
        }),
      );
      await context.route('**/live/**', (route) =>
        route.fulfill({ status: 503, contentType: 'text/plain', body: current }),
      );
      await context.route('**/*action=get_all_parameters', (route) =>
        route.fulfill({
          contentType: 'text/xml',
          body: settings.replace(/<(\w+)>[^<]*<\/\1>/g, (_, tag: string) => `<${tag}>${current}</${tag}>`),
        }),
      );
    });
    for (const text of hostileTexts) {
      current = text;
      await show(page, 'live');
      await page.reload();
      await eventually(
        () => page.getByTestId('cameras').locator('tbody th').first().textContent(),
        (name) => name === text,
      );
      expect(await page.locator('.camera-name').textContent()).toBe(text);
      // A value ends at its own closing tag, wherever that comes from.
      expect(await page.getByTestId('status').textContent()).toBe(text.split('</StatusCam_0>')[0]);
      await eventually(
        () => page.locator('.no-picture').innerText(),
        (words) => words.includes(shown(text).slice(0, 20)) || text === '\u202Eright to left',
      );
      await expectHarmless(page);
      for (const tab of ['areas', 'detection', 'cameras'] as const) {
        await page.evaluate((name) => (location.hash = `#/${name}`), tab);
        await page
          .locator(tab === 'areas' ? 'svg.editor' : 'input')
          .first()
          .waitFor();
        await expectHarmless(page);
      }
      expect(await page.locator('input[name=CamName]').inputValue()).toBe(text);
      await page.evaluate(() => (location.hash = '#/reports'));
      await eventually(
        () => page.getByTestId('report').locator('thead th').last().textContent(),
        (name) => name === text,
      );
      await expectHarmless(page);
      await page.evaluate(() => (location.hash = '#/advanced'));
      await page.getByRole('button', { name: 'View Log' }).click();
      await eventually(
        () => page.getByTestId('log').locator('.message').allTextContents(),
        (lines) => lines.length === 2 && lines.every((line) => line === text),
      );
      await expectHarmless(page);
    }
  });

  test('as names of cameras and followers are nothing but text: in the report, the warning to two savers, and beside areas', async () => {
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

  test('that were sent to the real camera change nothing but what is read', async () => {
    const page = await opened('live');
    const before = { CamName: await stored(page, 'CamName'), FO1_Name: await stored(page, 'FO1_Name') };
    for (const text of hostileTexts) {
      expect(
        await post(
          page,
          'post_submit_log',
          `<root><log_severity>info</log_severity><log_entry>${text}</log_entry></root>`,
        ),
      ).toBe(200);
    }
    await page.evaluate(() => (location.hash = '#/advanced'));
    await page.getByRole('button', { name: 'View Log' }).click();
    const lines = page.getByTestId('log').locator('.message');
    // The camera itself cuts at a "<" and makes a space of a tab.
    const plain = hostileTexts.filter((text) => !text.includes('<')).map((text) => text.replace('\t', ' '));
    await eventually(
      async () => {
        const read = await lines.allTextContents();
        return plain.filter((text) => !read.includes(text));
      },
      (missing) => missing.length === 0,
    );
    await expectHarmless(page);
    for (const name of hostileTexts) {
      // What a "<" cuts off is read as elements: none of these may be one that the camera knows.
      // And the settings end where they are said to end.
      if (/<(Total|Status|\/root)/.test(name)) continue;
      await store(page, { CamName: name, FO1_Name: name });
      await show(page, 'live');
      const told = /<NameCam_0>(.*?)<\/NameCam_0>/s.exec(await ask(page, 'get_data_panel_info'))![1];
      await eventually(
        () => page.locator('.camera-name').textContent(),
        (text) => text === told,
      );
      await expectHarmless(page);
    }
    for (const tab of tabs) {
      await show(page, tab);
      await expectHarmless(page);
    }
    await store(page, before);
  });
});
