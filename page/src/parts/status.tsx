import { kNotAsked } from '../model/pulse';
import { PanelCamera } from '../model/readers';
import { usePulse } from '../stores';
import { texts } from '../texts';

export type Tone = 'good' | 'warn' | 'bad' | 'neutral';

/** The colour that goes with a status text; the text itself says everything. */
export function toneOf(status: string): Tone {
  if (status === 'Running') return 'good';
  if (/event active|^Slow/.test(status)) return 'warn';
  return /error/i.test(status) ? 'bad' : 'neutral';
}

export function StatusBadge({ status, tone, title }: { status: string; tone?: Tone; title?: string }) {
  return <span class={`badge ${tone ?? toneOf(status)}`} title={title}>{status}</span>;
}

/** The status of a camera, or why it is not known. */
export function CameraStatus({ camera: { index, status } }: { camera: PanelCamera }) {
  const { connection } = usePulse();
  if (connection !== 'ok') {
    const words = index === 0 ? texts.connection[connection] : texts.followerStatus.unknown;
    return <StatusBadge status={words} tone={index === 0 && connection !== 'asking' ? 'bad' : 'neutral'} />;
  }
  if (index > 0 && status === kNotAsked) return <StatusBadge status={texts.followerStatus.notAsked} tone="neutral" title={status} />;
  return <StatusBadge status={status || texts.followerStatus.unknown} />;
}
