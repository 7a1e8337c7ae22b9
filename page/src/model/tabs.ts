export const tabNames = ['live', 'areas', 'detection', 'reports', 'count', 'cameras', 'advanced'] as const;
export type TabName = (typeof tabNames)[number];

/** Those of somebody who changes nothing. */
export const viewersTabs: readonly TabName[] = ['live', 'reports'];
