import { texts } from '../texts';
import { askCounted } from './api';

/** What came of a leader's try to ask a follower with the stored login. */
export interface Trial {
  /** Whether its name has an address. */
  found: boolean;
  /** Of its answer; 0 where none came. */
  status: number;
  /** Whether it told its status as this application does. */
  counts: boolean;
  role: '' | 'operator' | 'viewer';
  version: string | null;
  /** This camera's. */
  own: string;
  /** So many seconds its clock is ahead of this camera's. */
  ahead: number | null;
}

/** One thing that a try has found; texts.ts has the words for each. */
export type Finding = keyof typeof texts.trial.findings;

const kGood: Finding[] = ['reachable', 'loggedIn', 'sameVersion', 'sameTime'];
export const isGood = (finding: Finding) => kGood.includes(finding);

/** So many seconds two clocks may differ by. */
export const kMostApart = 60;

/** What a try has found, one thing after the other, as far as it came. */
export function findingsOf({ found, status, counts, role, version, own, ahead }: Trial): Finding[] {
  if (!found) return ['noName'];
  if (status === 0) return ['noAnswer'];
  if (status === 401) return ['reachable', 'refused'];
  if (status === 429) return ['reachable', 'slowedDown'];
  if (!counts) return ['reachable', 'otherApplication'];
  const findings: Finding[] = ['reachable', role === 'viewer' ? 'viewer' : 'loggedIn'];
  if (version === null) findings.push('older');
  else findings.push(version === own ? 'sameVersion' : 'otherVersion');
  if (ahead !== null) findings.push(Math.abs(ahead) > kMostApart ? 'otherTime' : 'sameTime');
  return findings;
}

/** Has the camera try one of its followers, 1 to 10, as it is stored. Throws a CameraError. */
export async function tryFollower(number: number): Promise<Trial> {
  return (await askCounted(`test_follower&slot=${number}`)) as Trial;
}
