import { expect, test, vi } from 'vitest';
import { findingsOf, isGood, Trial } from '../../src/model/trial';
import { texts } from '../../src/texts';

vi.mock('../../src/camera', () => ({ webService: '', loginCheck: '' }));

const kGood: Trial = { found: true, status: 200, counts: true, role: 'operator', version: '2.1', own: '2.1', ahead: 0 };

test.each<[string, Partial<Trial>, string]>([
  ['all is well', {}, 'reachable loggedIn sameVersion sameTime'],
  ['a camera that tells no role', { role: '' }, 'reachable loggedIn sameVersion sameTime'],
  ['no such name', { found: false, status: 0, counts: false }, 'noName!'],
  ['nobody there', { status: 0, counts: false }, 'noAnswer!'],
  ['a wrong login', { status: 401, counts: false }, 'reachable refused!'],
  ['logins slowed down', { status: 429, counts: false }, 'reachable slowedDown!'],
  ['no application', { status: 404, counts: false }, 'reachable otherApplication!'],
  ['another one', { counts: false }, 'reachable otherApplication!'],
  ['who may only look', { role: 'viewer' }, 'reachable viewer! sameVersion sameTime'],
  ['another version', { version: '2.0' }, 'reachable loggedIn otherVersion! sameTime'],
  ['one that tells no version', { version: null, ahead: null }, 'reachable loggedIn older!'],
  ['a clock a minute off', { ahead: -60 }, 'reachable loggedIn sameVersion sameTime'],
  ['a clock more than that off', { ahead: 61 }, 'reachable loggedIn sameVersion otherTime!'],
])('a follower: %s', (_, change, expected) => {
  const findings = findingsOf({ ...kGood, ...change });
  expect(findings.map((finding) => finding + (isGood(finding) ? '' : '!')).join(' ')).toBe(expected);
});

test('a clock that is off is said which way', () => {
  expect(texts.trial.findings.otherTime({ ...kGood, ahead: 7200 })).toMatch(/ ahead of /);
  expect(texts.trial.findings.otherTime({ ...kGood, ahead: -7200 })).toMatch(/ behind /);
});
