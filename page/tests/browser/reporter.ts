import { basename } from 'node:path';
import { stripVTControlCharacters } from 'node:util';
import type { SerializedError, UserConsoleLog } from 'vitest';
import type { Reporter, TestCase, TestModule, TestSuite } from 'vitest/node';

type Failure = SerializedError & { diff?: string };

const say = (text: string) => process.stdout.write(`${stripVTControlCharacters(text)}\n`);
const firstLine = ({ message }: Failure) => message.trim().split('\n')[0];

/** What went wrong, with the difference of what was compared, and where. */
function told({ message, diff, stack }: Failure): string {
  const places = (stack ?? '').split('\n').filter((line) => /^\s+at .*tests\/browser/.test(line));
  return [message, diff, ...places].filter(Boolean).join('\n').replace(/^/gm, '    ');
}

/**
 * Tells one line of each file, more of each test that failed or passed only when it was repeated, and what failed as a list
 * again at the very end: of long logs often no more is kept.
 */
export default class implements Reporter {
  private readonly failed: string[] = [];

  /** What tests tell of themselves when they fail. */
  onUserConsoleLog({ content }: UserConsoleLog): void {
    say(content.trimEnd());
  }

  onTestCaseResult(test: TestCase): void {
    const name = `${basename(test.module.moduleId)} > ${test.name}`;
    const { state, errors } = test.result();
    const retries = test.diagnostic()?.retryCount ?? 0;
    if (state === 'failed') this.note(name, errors);
    // "./senvo test" knows them by the mark and the number.
    else if (retries > 0) say(` ✓ ${name} (retry x${retries})\n${errors?.map(told).join('\n')}`);
  }

  onTestSuiteResult(suite: TestSuite): void {
    this.note(`${basename(suite.module.moduleId)} > ${suite.name}`, suite.errors());
  }

  onTestModuleEnd(module: TestModule): void {
    const name = basename(module.moduleId);
    const count = (state?: 'failed' | 'skipped') => [...module.children.allTests(state)].length;
    const seconds = Math.round(module.diagnostic().duration / 1000);
    say(
      ` ${module.ok() ? '✓' : '×'} ${name}: ${count()} tests, ${count('failed')} failed, ${count('skipped')} skipped, ${seconds} s`,
    );
  }

  onTestRunEnd(modules: readonly TestModule[], unhandled: readonly SerializedError[]): void {
    for (const module of modules) this.note(basename(module.moduleId), module.errors());
    this.note('outside of the tests', unhandled);
    for (const line of this.failed) say(line);
  }

  private note(name: string, errors: readonly Failure[]): void {
    if (errors.length === 0) return;
    this.failed.push(`failed: ${name}: ${firstLine(errors[0])}`);
    say(` × ${name}\n${errors.map(told).join('\n')}`);
  }
}
