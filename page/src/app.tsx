import { JSX } from 'preact';
import { useEffect, useRef, useState } from 'preact/hooks';
import { Icon } from './icons';
import { tabOf } from './model/fields';
import { useStore } from './model/store';
import { role } from './model/role';
import { TabName, tabNames, viewersTabs } from './model/tabs';
import { useFocusKept } from './parts/focus';
import { onDemand } from './parts/on_demand';
import { CameraStatus, StatusBadge } from './parts/status';
import { pulse, settings, useAlerts, useCameraTime, useHandCount, usePulse, useRole, useSettings } from './stores';
import { AdvancedTab } from './tabs/advanced';
import { AreasTab } from './tabs/areas';
import { CamerasTab } from './tabs/cameras';
import { DetectionTab } from './tabs/detection';
import { LiveTab } from './tabs/live';
import { texts } from './texts';
import { theme } from './theme';

const tabs: Record<TabName, () => JSX.Element> = {
  live: LiveTab,
  areas: AreasTab,
  detection: DetectionTab,
  reports: onDemand(async () => (await import('./tabs/reports')).ReportsTab),
  count: onDemand(async () => (await import('./tabs/count')).CountTab),
  cameras: CamerasTab,
  advanced: AdvancedTab,
};

function tabOfAddress(): TabName {
  const name = location.hash.replace(/^#\/?/, '') as TabName;
  return tabNames.includes(name) ? name : 'live';
}

function useTab(): TabName {
  const [tab, setTab] = useState(tabOfAddress);
  useEffect(() => {
    const follow = () => setTab(tabOfAddress());
    addEventListener('hashchange', follow);
    return () => removeEventListener('hashchange', follow);
  }, []);
  return tab;
}

/** Whether a key is pressed where the settings are seen, and means nothing else. */
function isForSettings({ target }: KeyboardEvent): boolean {
  const typing = (target as Element).matches?.('input:not([type=checkbox],[type=radio],[type=range]), textarea');
  return !typing && !document.querySelector('dialog[open]') && document.querySelector('main form') !== null;
}

/** Unsaved changes: the browser asks before they are lost, and Ctrl+Z takes the last one back where settings are seen. */
function useUnsavedGuard(): void {
  useEffect(() => {
    const ask = (event: BeforeUnloadEvent) => {
      if (settings.edits.size > 0) event.preventDefault();
    };
    const undo = (event: KeyboardEvent) => {
      if (
        event.key === 'z' &&
        (event.ctrlKey || event.metaKey) &&
        !event.shiftKey &&
        settings.canUndo &&
        isForSettings(event)
      ) {
        event.preventDefault();
        settings.undo();
      }
    };
    addEventListener('beforeunload', ask);
    addEventListener('keydown', undo);
    return () => {
      removeEventListener('beforeunload', ask);
      removeEventListener('keydown', undo);
    };
  }, []);
}

const kFresh = 60_000;

/**
 * Settings are read when the camera is there, or there again, when somebody comes back to the page, and each minute: others
 * change them, too. What could not be read is tried again.
 */
function useFreshSettings(): void {
  useEffect(() => {
    let generation = 0;
    let readAt = -Infinity;
    const comeBack = () => (readAt = -Infinity);
    document.addEventListener('visibilitychange', comeBack);
    // Behind an answer of the camera: before it, a login might be asked for twice.
    const leave = pulse.watch(() => {
      if (pulse.connection !== 'ok' || role.isViewer) return;
      const isFresh = generation === pulse.generation && performance.now() - readAt < kFresh && !settings.trouble;
      if (isFresh) return;
      generation = pulse.generation;
      readAt = performance.now();
      void settings.load();
    });
    return () => {
      document.removeEventListener('visibilitychange', comeBack);
      leave();
    };
  }, []);
}

function ThemeButton() {
  const { chosen } = useStore(theme);
  return (
    <button
      type="button"
      class="quiet icon-button"
      title={texts.theme[chosen]}
      aria-label={texts.theme[chosen]}
      onClick={() => theme.next()}
    >
      <Icon name="theme" />
    </button>
  );
}

/** The alerts that the camera's status does not tell, since it tells something else. */
function AlertBadge() {
  const { raised } = useAlerts();
  const { connection, panel } = usePulse();
  if (connection !== 'ok' || raised.length === 0 || /event active/.test(panel?.cameras[0].status ?? '')) return null;
  const names = [...new Set(raised.map(({ name }) => texts.advanced.alert[name]))];
  return (
    <span role="status" data-testid="alert">
      <StatusBadge status={texts.alertOf(names)} tone="warn" />
    </span>
  );
}

function ConnectionBadge() {
  const { connection, panel } = usePulse();
  return (
    <span role="status" data-testid="status">
      {panel ? (
        <CameraStatus camera={panel.cameras[0]} />
      ) : (
        <StatusBadge status={texts.connection[connection]} tone={connection === 'asking' ? 'neutral' : 'bad'} />
      )}
    </span>
  );
}

function ConnectionBanner() {
  const { connection } = usePulse();
  const banner = useRef<HTMLDivElement>(null);
  // "Sign in again" goes once one is let in.
  useFocusKept(banner, () => null);
  if (connection === 'ok' || connection === 'asking') return null;
  return (
    <div ref={banner} class="banner bad" role="alert">
      <p>{texts.connectionLong[connection]}</p>
      {connection === 'signedOut' && (
        <button type="button" onClick={() => void pulse.signIn()}>
          {texts.signIn}
        </button>
      )}
    </div>
  );
}

function CameraName() {
  const name = usePulse().panel?.cameras[0].name;
  return <span class="camera-name">{name}</span>;
}

function Tabs({ current }: { current: TabName }) {
  const { edits } = useSettings();
  const { isViewer } = useRole();
  const unsaved = new Set([...edits.keys()].map(tabOf));
  return (
    <nav class="tabs" aria-label={texts.tabs.label}>
      {(isViewer ? viewersTabs : tabNames).map((name) => (
        <a key={name} href={`#/${name}`} aria-current={name === current ? 'page' : undefined}>
          <Icon name={name} />
          <span>{texts.tabs[name]}</span>
          {unsaved.has(name) && (
            <span class="mark" role="img" aria-label={texts.tabs.unsaved} title={texts.tabs.unsaved} />
          )}
        </a>
      ))}
    </nav>
  );
}

export function App() {
  const asked = useTab();
  useCameraTime();
  const { isViewer } = useRole();
  // Who counts by hand is not to see what the camera counts.
  const isBlind = useHandCount().count !== null && !isViewer;
  const tab = isBlind ? 'count' : isViewer && !viewersTabs.includes(asked) ? 'live' : asked;
  useUnsavedGuard();
  useFreshSettings();
  useEffect(() => pulse.start(), []);
  useEffect(() => {
    document.title = `${texts.tabs[tab]} – ${texts.product}`;
    scrollTo(0, 0);
    settings.turnedTo();
  }, [tab]);
  const Tab = tabs[tab];
  return (
    <>
      <a
        class="skip"
        href="#content"
        onClick={(event) => {
          event.preventDefault();
          document.getElementById('content')!.focus();
        }}
      >
        {texts.skip}
      </a>
      <header class="top">
        <span class="brand">
          <img src="./icon.svg" alt="" width="28" height="28" />
          {texts.product}
        </span>
        <CameraName />
        {!isBlind && <AlertBadge />}
        {!isBlind && <ConnectionBadge />}
        <ThemeButton />
      </header>
      {!isBlind && <Tabs current={tab} />}
      <main id="content" tabIndex={-1}>
        <ConnectionBanner />
        <h1>{texts.tabs[tab]}</h1>
        <Tab />
      </main>
    </>
  );
}
