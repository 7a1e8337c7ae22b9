import { statusOf } from '../model/fields';
import { kNotAsked } from '../model/pulse';
import { PanelCamera } from '../model/readers';
import { pulse, usePulse } from '../stores';
import { texts } from '../texts';

/** A leader asks every three seconds: counts that are older are not those of now. */
const kOldSeconds = 30;

export type Tone = 'good' | 'warn' | 'bad' | 'neutral';

/** The colour that goes with the camera's own words for a status; words for people say everything. */
export function toneOf(status: string): Tone {
  if (status === 'Running') return 'good';
  if (/event active|^Slow/.test(status)) return 'warn';
  return /error/i.test(status) ? 'bad' : 'neutral';
}

export function StatusBadge({ status, tone, title }: { status: string; tone: Tone; title?: string }) {
  return (
    <span class={`badge ${tone}`} title={title}>
      {status}
    </span>
  );
}

/** The status of a camera, or why it is not known. */
export function CameraStatus({ camera: { index, status } }: { camera: PanelCamera }) {
  const { connection, panel } = usePulse();
  if (connection !== 'ok') {
    const words = index === 0 ? texts.connection[connection] : texts.followerStatus.unknown;
    return <StatusBadge status={words} tone={index === 0 && connection !== 'asking' ? 'bad' : 'neutral'} />;
  }
  if (index > 0 && status === kNotAsked)
    return <StatusBadge status={texts.followerStatus.notAsked} tone="neutral" title={status} />;
  const isFull = index === 0 && status === 'Occupancy event active' && panel?.occupancy != null && panel.limit !== null;
  const words = isFull ? texts.tooMany(panel.occupancy!, panel.limit!) : statusOf(status);
  const tone = toneOf(status);
  const isOld = index > 0 && tone === 'good' && (pulse.ages[index - 1] ?? Infinity) > kOldSeconds;
  return <StatusBadge status={words || texts.followerStatus.unknown} tone={isOld ? 'warn' : tone} title={status} />;
}
