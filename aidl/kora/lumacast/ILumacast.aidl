package kora.lumacast;

import kora.lumacast.ILumacastCallback;

/**
 * The streaming service, registered as "lumacastservice". Every method returns its
 * result; commands that reach the camera wait for its answer for up to 3 seconds.
 */
interface ILumacast {
    boolean setCallback(ILumacastCallback callback);
    boolean removeCallback(ILumacastCallback callback);
    boolean setZoomSwitch(boolean on);
    boolean getZoomSwitch();
    int getAiAlgoList();
    boolean setAiSubscribeType(int type);
    int getAiSubscribeStatus();
    boolean setAiProperty(@utf8InCpp String param);
    @utf8InCpp String getAiProperty(@utf8InCpp String param);
    boolean setAiSubscribe(int param, @utf8InCpp String option);
    @utf8InCpp String getAiSubscribe();
    boolean grabFrame(int format, @utf8InCpp String resolution);
    boolean sendDoa(@utf8InCpp String data);
    boolean setAutoFraming(int param);
    boolean getAutoFraming();
    boolean setZoomMode(int param, int mode);
    @utf8InCpp String getZoomMode();
}
